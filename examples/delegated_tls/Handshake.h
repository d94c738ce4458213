// One handshake over loopback: a server with the key under test, and a client that verifies it.
#pragma once

#include "Delegation.h"

#include <krOpenSSL/krHandles.h>

#include <string>

namespace delegated_tls {

/// How the server's private key is reached.
enum class Way { provider, callback, software };

/// What one line of the demo sets up.
struct Scenario {
  int version;
  const char *ciphers;
  const char *signatureAlgorithms;
  Way way;
  X509 *certificate;
  EVP_PKEY *softwareKey; ///< for Way::software
  HeldKey *heldKey;      ///< for the two others
  const krOpenSSL::Library *library;
  X509 *authority;
};

struct Outcome {
  std::string protocol;
  std::string cipher;
  std::string scheme; ///< as the client saw it
  double milliseconds = 0;
};

/// Runs the handshake and a few bytes each way. Throws a Failure when either side failed.
Outcome shakeHands(const Scenario &scenario);

} // namespace delegated_tls
