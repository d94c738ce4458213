// The key-delegation engine "qvlib".
#pragma once

#include <openssl/engine.h>

namespace krOpenSSL {

inline constexpr const char *kQvlibId = "qvlib";

/// Gives the listed engine the EC method that it was built without for want of memory, if it was: the list takes no
/// second engine in its place. The error queue stays as it was.
void attachMissingEcKey(ENGINE *engine) noexcept;

} // namespace krOpenSSL

/// Fills a fresh engine: identity, random method (outside FIPS mode) and the delegating RSA, DSA and EC
/// methods, which the engine then owns. Without an EC method the engine is complete all the same.
/// @return 1; or 0 after a failure, with the engine freed. The error queue stays as it was
int qvlib_bind(ENGINE *engine) noexcept;

int qvlib_init(ENGINE *engine) noexcept;

/// Frees the methods of this very engine. Returns 1.
int qvlib_destroy(ENGINE *engine) noexcept;
