// DSA of the bridge engine.
#pragma once

#include <openssl/dsa.h>

/// A new "qvlib FIPS DSA method", or null.
DSA_METHOD *qvFipsDsaMethod() noexcept;

/// As qvFipsRsaLoadKey.
int qvFipsDsaLoadKey(DSA *dsa) noexcept;

/// Offered to the registered callback first.
DSA_SIG *qvFipsDsaSign(const unsigned char *dgst, int dlen, DSA *dsa) noexcept;

/// @return 1 for a valid signature, else 0; never -1
int qvFipsDsaVerify(const unsigned char *dgst, int dlen, DSA_SIG *sig, DSA *dsa) noexcept;

int qvFipsDsaInit(DSA *dsa) noexcept;
int qvFipsDsaFinish(DSA *dsa) noexcept;
int qvFipsDsaGenerateParameters(DSA *dsa, int bits, const unsigned char *seed, int seed_len, int *counter_ret,
                                unsigned long *h_ret, BN_GENCB *cb) noexcept;
int qvFipsDsaGenerateKey(DSA *dsa) noexcept;
