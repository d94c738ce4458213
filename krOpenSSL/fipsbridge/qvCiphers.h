// The bridge's ciphers: three-key triple DES in CBC mode, AES in CBC and in ECB mode.
#pragma once

#include <openssl/engine.h>

#include <cstddef>

namespace krOpenSSL {

inline constexpr std::size_t kCipherCount = 7;

} // namespace krOpenSSL

/// The engine's cipher selector.
/// @return with @p cipher null the count of the list that is stored in @p nids; else 1, or 0 and a null cipher
///         when this engine has none for @p nid
int qv_ciphers(ENGINE *engine, const EVP_CIPHER **cipher, const int **nids, int nid) noexcept;
