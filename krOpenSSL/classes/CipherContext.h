// What the classes over an EVP_CIPHER_CTX of their own do with it alike.
#pragma once

#include <openssl/evp.h>

namespace krOpenSSL {

/// Whether it is there and has a key: a context without a cipher is one without a key.
inline bool isKeyed(const EVP_CIPHER_CTX *context) noexcept {
  return context != nullptr && EVP_CIPHER_CTX_cipher(context) != nullptr;
}

/// Makes @p context, if it is there, a copy of @p other. OpenSSL refuses to copy a context without a key: the copy of
/// one is a context without a key, too, as after any other failure.
inline void copyOrReset(EVP_CIPHER_CTX *context, const EVP_CIPHER_CTX *other) noexcept {
  if (context != nullptr && !(isKeyed(other) && EVP_CIPHER_CTX_copy(context, other) == 1)) {
    EVP_CIPHER_CTX_reset(context);
  }
}

} // namespace krOpenSSL
