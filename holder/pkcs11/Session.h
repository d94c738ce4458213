// A session with a token, and what this program does in one.
#pragma once

#include "Module.h"
#include "wire/Wiping.h"

#include <span>
#include <vector>

namespace krHolder::pkcs11 {

/// One thread at a time.
class Session {
public:
  Session(std::shared_ptr<const Module> module, CK_SLOT_ID slot);
  ~Session();
  Session(const Session &) = delete;
  Session &operator=(const Session &) = delete;

  /// Whether the program is logged in with the token, which is so for all sessions or none.
  bool loggedIn() const;
  CK_RV login(Bytes &pin) const;

  /// At most @p limit of the objects with all these attributes.
  std::vector<CK_OBJECT_HANDLE> find(std::span<CK_ATTRIBUTE> attributes, std::size_t limit) const;

  /// Empty when the object does not have it.
  Bytes attribute(CK_OBJECT_HANDLE object, CK_ATTRIBUTE_TYPE type) const;

  /// @p capacity is the most that can come out.
  Bytes sign(CK_MECHANISM mechanism, CK_OBJECT_HANDLE key, View data, std::size_t capacity) const;
  Bytes decrypt(CK_MECHANISM mechanism, CK_OBJECT_HANDLE key, View data, std::size_t capacity) const;

private:
  const std::shared_ptr<const Module> module_;
  CK_SESSION_HANDLE handle_ = CK_INVALID_HANDLE;
};

} // namespace krHolder::pkcs11
