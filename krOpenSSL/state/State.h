// Every process-wide word of the library. Each has one owner that writes it; all are constant-initialised,
// so they hold before the first static object is made and after the last is gone.
#pragma once

#include <krOpenSSL/krDelegation.h>

#include <openssl/engine.h>
#include <openssl/evp.h>

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>

namespace krOpenSSL {
struct FipsModule;
} // namespace krOpenSSL

namespace krOpenSSL::state {

/// Users of OpenSSL. Written by krOSSLSetup and krOSSLCleanup; not clamped at 0.
extern std::atomic<std::int32_t> setupCount;

/// The engine that is registered now, or null. Written by the engine load and unload.
extern std::atomic<ENGINE *> activeEngine;

/// The engine that OpenSSL's list holds. The reference that a load takes is never given back, so the engine
/// outlives the list; this keeps it reachable for tools that look for leaks. Written by the engine load.
extern std::atomic<ENGINE *> listedQvlib;

/// The same for the bridge to the FIPS module, an engine of its own in that list.
extern std::atomic<ENGINE *> listedBridge;

/// FIPS mode on or off: 0 or 1. Written by the FIPS switches.
extern std::atomic<int> fipsMode;

/// Whether wolfEngine provides FIPS mode: 0 or 1. Written by krFipsUseOpenSSLFIPS.
extern std::atomic<int> useOpenSSLFips;

/// Whether wolfEngine is in OpenSSL's list, where it stays. Written by its loader.
extern std::atomic<bool> wolfEngineListed;

/// The engine whose functional reference the wolfEngine loader holds, or null. Written by its load and unload.
extern std::atomic<ENGINE *> initialisedEngine;

/// Where wolfEngine is: NUL-terminated, empty until the system has told. Written by its loader.
inline constexpr std::size_t kWolfEnginePathBytes = 1100;
extern std::array<char, kWolfEnginePathBytes> wolfEnginePath;

/// What wolfEngine's EVP_PKEY methods signed with before the delegating sign was put before it. Written by the
/// splice.
using PkeySign = int(EVP_PKEY_CTX *context, unsigned char *signature, std::size_t *signatureLength,
                     const unsigned char *data, std::size_t length);
extern std::atomic<PkeySign *> wolfEngineRsaSign;
extern std::atomic<PkeySign *> wolfEngineRsaPssSign;
extern std::atomic<PkeySign *> wolfEngineEcSign;

/// The loaded module of wolfEngine, kept so that its method objects stay where they are. Written by its loader.
extern std::atomic<void *> wolfEngineModule;

/// The dispatch table of the external FIPS module and that module itself. Nothing in the library attaches one;
/// krFipsClose lets go of both.
extern std::atomic<const FipsModule *> fipsModule;
extern std::atomic<void *> fipsModuleHandle;

/// Where the external FIPS module is, for its loader: NUL-terminated, empty when not given or too long.
/// Written by krFipsSetPath.
inline constexpr std::size_t kFipsModulePathBytes = 260;
extern std::array<char, kFipsModulePathBytes> fipsModulePath;
extern std::atomic<int> fipsModulePathGiven;
extern std::atomic<int> fipsModulePathTooLong;

/// 1 once the module's generator is instantiated. Written by the bridge's random method.
extern std::atomic<int> fipsGeneratorReady;

/// The callback slots. Written by their exported setters; krOSSLCleanup empties all but the decrypt slot.
extern std::atomic<RSAPrivateKeyOpCallback> rsaPrivateEncrypt;
extern std::atomic<RSAPrivateKeyOpCallback> rsaPrivateDecrypt;
extern std::atomic<DSAPrivateKeyOpCallback> dsaSign;
extern std::atomic<ECDSAPrivateKeyOpCallback> ecdsaSign;

/// The ex-data indexes, -1 until made. Written by the engine's exDataIndex.
extern std::atomic<int> rsaIndex;
extern std::atomic<int> dsaIndex;
extern std::atomic<int> ecdsaIndex;
extern std::atomic<int> sslCtxIndex;

/// krLogWrite writes above 3 only. Nothing in the library raises it.
extern std::atomic<std::uint32_t> krLogThreshold;

/// The bridge's ex-data indexes, -1 until made: for the key handle cells, written by qvlibFIPS_init, and for
/// the methods of an engine object, written by qvlibFIPS_bind.
extern std::atomic<int> fipsRsaIndex;
extern std::atomic<int> fipsDsaIndex;
extern std::atomic<int> fipsDhIndex;
extern std::atomic<int> fipsEngineIndex;

} // namespace krOpenSSL::state
