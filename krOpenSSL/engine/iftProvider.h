// The one place where the engine hands an operation to the caller for one TLS connection.
#pragma once

#include <openssl/objects.h>
#include <openssl/ssl.h>

#include <cstdint>

namespace krOpenSSL {

/// The type codes that the caller's callback receives.
inline constexpr int kRsaOperation = NID_md5_sha1;
inline constexpr int kDsaOperation = NID_dsa;
inline constexpr int kEcdsaOperation = NID_ecdsa_with_Recommended;

/// The capacity reported for every output buffer.
inline constexpr int kProviderCapacity = 16378;

} // namespace krOpenSSL

/// Finds the ift_provider record through the connection's SSL_CTX and calls its callback with the digest
/// to sign: the input as it is when it has the length of a raw digest, else the octets of the DER
/// DigestInfo that it has to be.
///
/// @param outLength  set to 0 by the function that calls this
/// @return -1 when there is no context, no usable record, the input is neither, or the callback claims
///         success with a length it may not have: negative, above the key size (RSA, whose output is a
///         buffer of that size) or above the capacity, or 0 for a raw digest;
///         0 when the callback failed; else the length that the callback set
int ift_provider_private_key_operation_callback(SSL *ssl, int type, int keySize, const unsigned char *in, int inLength,
                                                unsigned char *out, int capacity, std::int32_t *outLength) noexcept;

namespace krOpenSSL {

/// Has the connection's provider carry out RSA's private operation on the input as it is, for keys with the flag
/// KR_RSA_WHOLE_KEY.
///
/// @return the bytes at @p out, which has room for @p keySize; -1 when there is no usable record, and where
///         the callback claims a length it may not have, 0 among them; 0 when the callback failed
int providerRsaOperation(SSL *ssl, int type, int keySize, const unsigned char *in, int inLength,
                         unsigned char *out) noexcept;

} // namespace krOpenSSL
