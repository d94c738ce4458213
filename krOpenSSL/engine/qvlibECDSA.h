// The ECDSA signature of the engine's EC_KEY method.
#pragma once

#include <openssl/ec.h>
#include <openssl/ssl.h>

namespace krOpenSSL {

/// Has a method sign as the engine's does: with the sign and sign_setup of @p standard over the delegating sign_sig.
void delegateSigning(EC_KEY_METHOD *method, const EC_KEY_METHOD *standard) noexcept;

} // namespace krOpenSSL

/// sign_sig: the connection's provider when the key carries one, else the registered callback, else
/// OpenSSL's default method. The provider does not receive kinv and r.
/// @return a new signature that the caller owns, or null
ECDSA_SIG *qvlib_ECDSA_do_sign(const unsigned char *dgst, int dgst_len, const BIGNUM *kinv, const BIGNUM *r,
                               EC_KEY *eckey) noexcept;

ECDSA_SIG *qvlib_ECDSA_sign_via_provider(SSL *ssl, const unsigned char *dgst, int dgst_len, const BIGNUM *kinv,
                                         const BIGNUM *r, EC_KEY *eckey) noexcept;
