// The token of a label: where it is plugged in, and logged-in sessions with it.
#pragma once

#include "Session.h"
#include "TokenHolder.h"

#include <mutex>

namespace delegated_tls::pkcs11 {

/// Several threads may use it at once. It has to outlive its sessions.
class Token {
public:
  explicit Token(const TokenOptions &options) : options_(options), module_(options.module) {}

  /// A session of a logged-in program. The token is looked for anew: it may have been away. A PIN that the token
  /// refused is never tried again, since tokens lock after a few.
  std::unique_ptr<Session> openSession();

  /// How many sessions the token has for one program, but at most @p wanted.
  std::size_t sessionLimit(std::size_t wanted) const;

private:
  CK_SLOT_ID slot() const;
  void login(const Session &session);

  const TokenOptions options_;
  const Module module_;
  std::mutex mutex_;
  bool pinRefused_ = false;
};

} // namespace delegated_tls::pkcs11
