// RSA of the bridge engine.
#pragma once

#include <openssl/rsa.h>

/// A new "qvlib FIPS RSA method", or null.
RSA_METHOD *qvFipsRsaMethod() noexcept;

/// Puts the object's key into the module, in place of the one that its cell holds.
/// @return 0; -53 for a number without bytes or an object without a cell; -55 without memory; else what the
///         module said
int qvFipsRsaLoadKey(RSA *rsa) noexcept;

int qvFipsRsaPublicEncrypt(int flen, const unsigned char *from, unsigned char *to, RSA *rsa, int padding) noexcept;
int qvFipsRsaPublicDecrypt(int flen, const unsigned char *from, unsigned char *to, RSA *rsa, int padding) noexcept;

/// The private operations are offered to the registered callbacks first.
int qvFipsRsaPrivateEncrypt(int flen, const unsigned char *from, unsigned char *to, RSA *rsa, int padding) noexcept;
int qvFipsRsaPrivateDecrypt(int flen, const unsigned char *from, unsigned char *to, RSA *rsa, int padding) noexcept;

int qvFipsRsaInit(RSA *rsa) noexcept;
int qvFipsRsaFinish(RSA *rsa) noexcept;
int qvFipsRsaGenerateKey(RSA *rsa, int bits, BIGNUM *e, BN_GENCB *cb) noexcept;
