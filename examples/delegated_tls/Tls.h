// What server and client have in common: contexts, and what a finished handshake agreed on.
#pragma once

#include "Descriptor.h"

#include <krOpenSSL/krHandles.h>

#include <string>

namespace delegated_tls {

/// A context limited to the named ciphers (TLS 1.2 and below) and signature algorithms.
krOpenSSL::SSLCtxPtr makeContext(const SSL_METHOD *method, const char *ciphers, const char *signatureAlgorithms);

/// A connection over the socket, which has to outlive it.
krOpenSSL::SSLPtr makeConnection(SSL_CTX *context, const Descriptor &socket);

/// Fails for EC keys on a curve that TLS clients do not take in a certificate.
void requireTlsCurve(EVP_PKEY *key);

/// The TLS name of a signature scheme: "rsa_pkcs1_sha256"; "none" where nothing was signed.
std::string schemeName(int digestNid, int signatureNid);

std::string serverScheme(SSL *ssl);
std::string peerScheme(SSL *ssl);

} // namespace delegated_tls
