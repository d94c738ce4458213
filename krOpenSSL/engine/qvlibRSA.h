// The RSA private-key operations of the engine's RSA method.
#pragma once

#include <openssl/rsa.h>

/// priv_enc: the connection's provider when the key carries one, else the registered callback, else
/// OpenSSL's default method. On the provider path the padding is not passed on; a key with the flag
/// KR_RSA_WHOLE_KEY takes blocks without padding there.
int qvlib_RSA_private_encrypt(int flen, const unsigned char *from, unsigned char *to, RSA *rsa, int padding) noexcept;

/// priv_dec: the registered callback, else OpenSSL's default method; the provider first, and alone, for a key
/// with the flag KR_RSA_WHOLE_KEY that carries a connection.
int qvlib_RSA_private_decrypt(int flen, const unsigned char *from, unsigned char *to, RSA *rsa, int padding) noexcept;
