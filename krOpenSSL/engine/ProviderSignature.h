// Signing through the provider with a key whose signatures are DER objects: DSA and ECDSA.
#pragma once

#include "accessors/ErrorQueueScope.h"
#include "accessors/KeySize.h"
#include "engine/iftProvider.h"

#include <array>

namespace krOpenSSL {

inline constexpr std::size_t kSignatureBufferBytes = 16384;
static_assert(kProviderCapacity <= kSignatureBufferBytes);

/// Has the connection's provider sign the digest and decodes what it wrote with @p decode.
/// @return null when the provider failed, its bytes are not a DER signature, or the signature is longer than the key's
template <class SignaturePtr, class Signature>
Signature *signViaProvider(SSL *ssl, int type, int keySize, const unsigned char *digest, int length,
                           Signature *(*decode)(Signature **, const unsigned char **, long)) noexcept {
  // On the stack and not filled: only what the provider reports as written is read.
  std::array<unsigned char, kSignatureBufferBytes> buffer;
  std::int32_t written = 0;
  const int result = ift_provider_private_key_operation_callback(ssl, type, keySize, digest, length, buffer.data(),
                                                                 kProviderCapacity, &written);
  // 0 and -1 alike: there is nothing to decode.
  if (result <= 0) {
    return nullptr;
  }
  const ErrorQueueScope errors;
  const unsigned char *cursor = buffer.data();
  return withinSize(SignaturePtr(decode(nullptr, &cursor, written)), keySize);
}

} // namespace krOpenSSL
