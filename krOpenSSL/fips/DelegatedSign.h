// Signing with delegated keys where an engine brings EVP_PKEY methods of its own: the way that OpenSSL's own
// methods go, down to the key's RSA or EC_KEY method, which is the one that delegates.
#pragma once

#include <openssl/evp.h>

#include <cstddef>

namespace krOpenSSL {

/// Whether the context's key names its connection, or the callback for signatures of its type is registered (the
/// RSA private-encrypt or the ECDSA slot).
bool isDelegatedRsa(EVP_PKEY_CTX *context) noexcept;
bool isDelegatedEc(EVP_PKEY_CTX *context) noexcept;

/// sign functions of an EVP_PKEY method. A null @p signature asks for the length.
/// @return 1, or 0 or less on failure. RSA knows PKCS#1 v1.5 and PSS over a digest, and any padding over bare
///         data; other paddings over a digest are refused
int signDelegatedRsa(EVP_PKEY_CTX *context, unsigned char *signature, std::size_t *signatureLength,
                     const unsigned char *data, std::size_t length) noexcept;
int signDelegatedEc(EVP_PKEY_CTX *context, unsigned char *signature, std::size_t *signatureLength,
                    const unsigned char *data, std::size_t length) noexcept;

} // namespace krOpenSSL
