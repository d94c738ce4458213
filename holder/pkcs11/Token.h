// The token of a label: where it is plugged in, and what is done in logged-in sessions with it.
#pragma once

#include "SessionPool.h"

#include <tuple>

namespace krHolder::pkcs11 {

struct TokenOptions {
  std::string module;  ///< the token's PKCS#11 module, a shared library
  std::string label;   ///< the token's
  std::string pinFile; ///< readable by its owner alone

  friend bool operator<(const TokenOptions &one, const TokenOptions &other) {
    return std::tie(one.module, one.label, one.pinFile) < std::tie(other.module, other.label, other.pinFile);
  }
};

/// Several threads may use it at once.
class Token {
public:
  /// Throws a Failure where there is no such token.
  explicit Token(const TokenOptions &options);

  /// The token with these options: there is one in a process, so that its keys share sessions, login, and what is
  /// known of its PIN.
  static std::shared_ptr<Token> of(const TokenOptions &options);

  /// What the work gives that is done in a session. A token that was away knows neither session nor login nor key of
  /// before: when that is why the work failed, and then alone, it is done once more, in a new session. A session in
  /// which anything failed is closed.
  Bytes inSession(const std::function<Bytes(SessionPool::Lease &lease)> &work);

  /// Whether the token says that it has the mechanism for this.
  bool has(CK_MECHANISM_TYPE mechanism, CK_FLAGS use) const;

  /// How many sessions it has for one program, but no more than are useful.
  std::size_t sessionsAtOnce() const;

private:
  KeySession openSession();
  void noteLoss();
  CK_SLOT_ID slot() const;
  void login(const Session &session);

  const TokenOptions options_;
  const std::shared_ptr<SharedModule> module_;
  bool pinRefused_ = false; // tokens lock after a few, so it is never tried again
  SessionPool pool_;        // uses all of the above
};

} // namespace krHolder::pkcs11
