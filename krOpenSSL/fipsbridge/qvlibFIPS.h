// The bridge engine "qvlibFIPS": OpenSSL's algorithms, carried out by the external FIPS module.
#pragma once

#include <openssl/engine.h>

namespace krOpenSSL {

inline constexpr const char *kQvlibFipsId = "qvlibFIPS";

/// Gives the listed engine the RSA, DSA and DH methods that it was built without for want of memory, if it was: the
/// list takes no second engine in its place. The error queue stays as it was.
void attachMissingKeyMethods(ENGINE *engine) noexcept;

} // namespace krOpenSSL

/// Builds an engine and offers it to OpenSSL's list, which refuses it when it holds one of this id already.
/// Clears the error queue when the engine was built, and leaves it as it was when that failed.
void qvlibFIPS_bind() noexcept;

/// Makes the ex-data indexes that are not there yet. Returns 1.
int qvlibFIPS_init(ENGINE *engine) noexcept;

/// Frees the methods of this very engine. Returns 1.
int qvlibFIPS_destroy(ENGINE *engine) noexcept;
