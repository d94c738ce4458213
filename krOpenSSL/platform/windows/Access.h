// Who may do what: SIDs and access lists.
#pragma once

#include "platform/windows/Win32.h"

#include <aclapi.h>

#include <initializer_list>
#include <memory>

namespace krOpenSSL::platform {

/// Owns a SID; empty when there was no memory for it.
class Sid {
public:
  static Sid localSystem() noexcept { return Sid(SECURITY_NT_AUTHORITY, 1, SECURITY_LOCAL_SYSTEM_RID, 0); }
  static Sid administrators() noexcept {
    return Sid(SECURITY_NT_AUTHORITY, 2, SECURITY_BUILTIN_DOMAIN_RID, DOMAIN_ALIAS_RID_ADMINS);
  }
  static Sid everyone() noexcept { return Sid(SECURITY_WORLD_SID_AUTHORITY, 1, SECURITY_WORLD_RID, 0); }

  ~Sid() {
    if (sid_ != nullptr) {
      FreeSid(sid_);
    }
  }
  Sid(const Sid &) = delete;
  Sid &operator=(const Sid &) = delete;

  [[nodiscard]] PSID get() const noexcept { return sid_; }

private:
  Sid(SID_IDENTIFIER_AUTHORITY authority, BYTE count, DWORD first, DWORD second) noexcept {
    if (AllocateAndInitializeSid(&authority, count, first, second, 0, 0, 0, 0, 0, 0, &sid_) == 0) {
      sid_ = nullptr;
    }
  }

  PSID sid_ = nullptr;
};

/// One entry of an access list: set, and not inherited by what is made below.
struct AccessEntry {
  const Sid &who;
  TRUSTEE_TYPE type;
  DWORD rights;
};

struct FreeLocal {
  void operator()(void *memory) const noexcept { LocalFree(memory); }
};
using AccessList = std::unique_ptr<ACL, FreeLocal>;

/// Null when it cannot be made.
AccessList makeAccessList(std::initializer_list<AccessEntry> entries) noexcept;

/// What is made with these attributes, for the object's life, everyone has the rights to, and nobody inherits.
class ForEveryone {
public:
  explicit ForEveryone(DWORD rights) noexcept;
  ForEveryone(const ForEveryone &) = delete;
  ForEveryone &operator=(const ForEveryone &) = delete;

  /// False when they could not be made.
  explicit operator bool() const noexcept { return made_; }
  [[nodiscard]] SECURITY_ATTRIBUTES *get() noexcept { return &attributes_; }

private:
  AccessList list_;
  SECURITY_DESCRIPTOR descriptor_{};
  SECURITY_ATTRIBUTES attributes_{sizeof attributes_, &descriptor_, FALSE};
  bool made_;
};

} // namespace krOpenSSL::platform
