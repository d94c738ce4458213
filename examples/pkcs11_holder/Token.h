// The token of a label: where it is plugged in, and logged-in sessions with it.
#pragma once

#include "Session.h"
#include "TokenHolder.h"

#include <mutex>

namespace delegated_tls::pkcs11 {

/// Several threads may use it at once. It has to outlive its sessions.
class Token {
public:
  explicit Token(const TokenOptions &options)
      : options_(options), library_(options.module), module_(std::make_shared<const Module>(library_)) {}

  /// A session of a logged-in program. The token is looked for anew: it may have been away. A PIN that the token
  /// refused is never tried again, since tokens lock after a few.
  std::unique_ptr<Session> openSession();

  /// Says that a session was lost. Modules exist that see a token that comes back only when they are initialised
  /// anew, so that is done before the next session once no session is open.
  void sessionLost();

  /// How many sessions the token has for one program, but at most @p wanted.
  std::size_t sessionLimit(std::size_t wanted) const;

private:
  void startAnewIfLost();
  CK_SLOT_ID slot() const;
  void login(const Session &session);

  const TokenOptions options_;
  const SharedLibrary library_;
  std::shared_ptr<const Module> module_; // each session has a share
  std::mutex mutex_;
  bool lost_ = false;
  bool pinRefused_ = false;
};

} // namespace delegated_tls::pkcs11
