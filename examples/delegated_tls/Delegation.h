// Giving OpenSSL a key that it does not have: the public half, and the way to the holder.
#pragma once

#include "KeyHolder.h"

#include <krOpenSSL/krDelegate.hpp>

namespace delegated_tls {

/// How a connection waits for the holder's answer: as HeldKey::perform.
using WaitForHolder = std::optional<Bytes>(HeldKey &key, Operation operation, int padding, const Bytes &data);

/// The thread waits.
WaitForHolder waitForHolder;

/// The key for the connections that it is bound to: the holder signs for them.
krOpenSSL::DelegatedKey delegated(const krOpenSSL::Library &library, HeldKey &key, WaitForHolder *wait = waitForHolder);

/// Gives the connection a key that goes through the process-wide callbacks, which alone reach RSA-PSS signatures and
/// RSA decryption.
void useCallbackKey(SSL *ssl, HeldKey &key);

/// Registers the process-wide RSA callbacks for the life of the object. They serve the keys of
/// useCallbackKey, and pass every other RSA key on to OpenSSL's own method.
class RsaCallbacks {
public:
  RsaCallbacks();
  ~RsaCallbacks();
  RsaCallbacks(const RsaCallbacks &) = delete;
  RsaCallbacks &operator=(const RsaCallbacks &) = delete;
};

} // namespace delegated_tls
