// Diffie-Hellman of the bridge engine.
#pragma once

#include <openssl/dh.h>

/// A new "qvlib FIPS DH method", or null.
DH_METHOD *qvFipsDhMethod() noexcept;

int qvFipsDhGenerateKey(DH *dh) noexcept;

/// Works with the module's key of the object's last key generation.
/// @return the secret's length; 0 without a ready module; -1 on other failures
int qvFipsDhComputeKey(unsigned char *key, const BIGNUM *pub_key, DH *dh) noexcept;

int qvFipsDhGenerateParameters(DH *dh, int prime_len, int generator, BN_GENCB *cb) noexcept;
int qvFipsDhInit(DH *dh) noexcept;
int qvFipsDhFinish(DH *dh) noexcept;
