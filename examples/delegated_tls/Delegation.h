// Giving OpenSSL a key that it does not have: the public half, and the way to the holder.
#pragma once

#include "KeyHolder.h"

#include <krOpenSSL/krOpenSSL.h>

namespace delegated_tls {

/// The library, up for the life of the object.
class Library {
public:
  Library();
  ~Library() { krOSSLCleanup(); }
  Library(const Library &) = delete;
  Library &operator=(const Library &) = delete;
};

/// Puts the provider record of a held key on an SSL_CTX. It has to outlive the context's connections.
class Provider {
public:
  Provider(SSL_CTX *context, HeldKey &key);
  Provider(const Provider &) = delete;
  Provider &operator=(const Provider &) = delete;

private:
  ift_provider record_;
};

/// Gives the connection a key object of its own that signs through the provider of the connection's
/// SSL_CTX. The object has the certificate's public half and nothing more.
void useProviderKey(SSL *ssl, X509 *certificate);

/// The same for a key that goes through the process-wide callbacks, which alone reach RSA-PSS signatures
/// and RSA decryption.
void useCallbackKey(SSL *ssl, X509 *certificate, HeldKey &key);

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
