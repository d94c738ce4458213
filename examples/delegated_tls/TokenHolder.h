// A key holder over a PKCS#11 token: the private key never leaves the token.
#pragma once

#include "KeyHolder.h"

namespace delegated_tls {

struct TokenOptions {
  std::string module;  ///< the token's PKCS#11 module, a shared library
  std::string label;   ///< the token's
  std::string pinFile; ///< readable by its owner alone
};

/// Takes one sentence on an operation that failed. Several threads may call it at once.
using FailureReport = std::function<void(const std::string &)>;

/// Logs in to the token and finds the private key of @p publicHalf, which is the holder's only key. Throws a
/// Failure when there is no such key, it does not sign, or this build has no such holder.
std::unique_ptr<KeyHolder> startTokenHolder(const TokenOptions &options, const Bytes &publicHalf,
                                            const FailureReport &report);

} // namespace delegated_tls
