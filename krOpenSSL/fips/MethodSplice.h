// Splicing the delegating signature functions into wolfEngine's methods, so that delegated keys go on signing
// through the caller while wolfEngine is OpenSSL's default. What is spliced once stays.
#pragma once

#include <openssl/ec.h>
#include <openssl/engine.h>
#include <openssl/rsa.h>

namespace krOpenSSL {

/// Its private encryption becomes the delegating one; private decryption stays wolfEngine's.
void spliceRsaMethod(RSA_METHOD *method) noexcept;

/// Its signing becomes the delegating one, under OpenSSL's own sign and sign_setup. Without a default EC_KEY
/// method it stays as it is, which is logged.
void spliceEcKeyMethod(EC_KEY_METHOD *method) noexcept;

/// EVP_PKEY methods of the engine's own for RSA and EC would sign with the key itself, past the two above:
/// their sign hands delegated keys over to the key's method.
void splicePkeyMethods(ENGINE *engine) noexcept;

} // namespace krOpenSSL
