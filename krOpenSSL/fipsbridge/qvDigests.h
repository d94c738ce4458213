// The bridge's digests: SHA-1, SHA-224, SHA-256, SHA-384 and SHA-512.
#pragma once

#include <openssl/engine.h>

#include <cstddef>

namespace krOpenSSL {

inline constexpr std::size_t kDigestCount = 5;

} // namespace krOpenSSL

/// The engine's digest selector.
/// @return with @p digest null the count of the list that is stored in @p nids; else 1, with a null digest when
///         it cannot be built, or 0 and a null digest when this engine has none for @p nid
int qv_digests(ENGINE *engine, const EVP_MD **digest, const int **nids, int nid) noexcept;
