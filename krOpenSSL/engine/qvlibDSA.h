// The DSA signature of the engine's DSA method.
#pragma once

#include <openssl/dsa.h>
#include <openssl/ssl.h>

/// sign: the connection's provider when the key carries one, else the registered callback, else OpenSSL's
/// default method.
/// @return a new signature that the caller owns, or null
DSA_SIG *qvlib_DSA_do_sign(const unsigned char *dgst, int dlen, DSA *dsa) noexcept;

DSA_SIG *qvlib_DSA_sign_via_provider(SSL *ssl, const unsigned char *dgst, int dlen, DSA *dsa) noexcept;
