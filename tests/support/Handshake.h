// A TLS handshake in memory: a server whose private key is elsewhere and a client that verifies it.
#pragma once

#include "support/Provider.h"

namespace krTest {

/// The server has a certificate of the owner's key and itself the public half only.
struct Handshake {
  Handshake(int version, const char *ciphers, EVP_PKEY *owner, EVPPKeyPtr half);
  Handshake(int version, const char *ciphers, EVP_PKEY *owner)
      : Handshake(version, ciphers, owner, publicHalf(owner)) {}

  /// Starts a new connection.
  void reconnect();

  /// Has the provider sign for this connection, with algorithms that providers serve.
  void delegateTo(Provider &provider) const;

  /// Lets each side go on once; how many have finished.
  int step() const;

  /// How many sides finish.
  int run() const;

  EVPPKeyPtr key;
  krOpenSSL::SSLCtxPtr serverContext;
  krOpenSSL::SSLCtxPtr clientContext;
  krOpenSSL::SSLPtr server;
  krOpenSSL::SSLPtr client;
};

/// Has a server sign with one private operation elsewhere: by a provider, or by the RSA callback.
void expectDelegated(int version, const char *ciphers, Kind kind, bool viaProvider);

} // namespace krTest
