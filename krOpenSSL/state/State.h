// The process-wide words that rooms share. Each has one owner that writes it; all are constant-initialised, so they
// hold before the first static object is made and after the last is gone. A word of one room stands in that room.
#pragma once

#include <krOpenSSL/krDelegation.h>

#include <atomic>

namespace krOpenSSL {
struct FipsModule;
} // namespace krOpenSSL

namespace krOpenSSL::state {

/// FIPS mode on or off: 0 or 1. Written by the FIPS switches.
extern std::atomic<int> fipsMode;

/// Whether wolfEngine provides FIPS mode: 0 or 1. Written by krFipsUseOpenSSLFIPS.
extern std::atomic<int> useOpenSSLFips;

/// The dispatch table of the external FIPS module. Nothing in the library attaches one; krFipsClose lets go of it.
extern std::atomic<const FipsModule *> fipsModule;

/// The callback slots. Written by their exported setters; krOSSLCleanup empties all but the decrypt slot.
extern std::atomic<RSAPrivateKeyOpCallback> rsaPrivateEncrypt;
extern std::atomic<RSAPrivateKeyOpCallback> rsaPrivateDecrypt;
extern std::atomic<DSAPrivateKeyOpCallback> dsaSign;
extern std::atomic<ECDSAPrivateKeyOpCallback> ecdsaSign;

} // namespace krOpenSSL::state
