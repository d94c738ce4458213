// The process-wide words.
#include "state/State.h"

namespace krOpenSSL::state {

constinit std::atomic<std::int32_t> setupCount{0};
constinit std::atomic<ENGINE *> activeEngine{nullptr};
constinit std::atomic<ENGINE *> listedQvlib{nullptr};
constinit std::atomic<ENGINE *> listedBridge{nullptr};

constinit std::atomic<int> fipsMode{0};
constinit std::atomic<int> useOpenSSLFips{0};

constinit std::atomic<bool> wolfEngineListed{false};
constinit std::atomic<ENGINE *> initialisedEngine{nullptr};
constinit std::array<char, kWolfEnginePathBytes> wolfEnginePath{};
constinit std::atomic<PkeySign *> wolfEngineRsaSign{nullptr};
constinit std::atomic<PkeySign *> wolfEngineRsaPssSign{nullptr};
constinit std::atomic<PkeySign *> wolfEngineEcSign{nullptr};
constinit std::atomic<void *> wolfEngineModule{nullptr};

constinit std::atomic<const FipsModule *> fipsModule{nullptr};
constinit std::atomic<void *> fipsModuleHandle{nullptr};
constinit std::array<char, kFipsModulePathBytes> fipsModulePath{};
constinit std::atomic<int> fipsModulePathGiven{0};
constinit std::atomic<int> fipsModulePathTooLong{0};
constinit std::atomic<int> fipsGeneratorReady{0};

constinit std::atomic<RSAPrivateKeyOpCallback> rsaPrivateEncrypt{nullptr};
constinit std::atomic<RSAPrivateKeyOpCallback> rsaPrivateDecrypt{nullptr};
constinit std::atomic<DSAPrivateKeyOpCallback> dsaSign{nullptr};
constinit std::atomic<ECDSAPrivateKeyOpCallback> ecdsaSign{nullptr};

constinit std::atomic<int> rsaIndex{-1};
constinit std::atomic<int> dsaIndex{-1};
constinit std::atomic<int> ecdsaIndex{-1};
constinit std::atomic<int> sslCtxIndex{-1};

constinit std::atomic<int> fipsRsaIndex{-1};
constinit std::atomic<int> fipsDsaIndex{-1};
constinit std::atomic<int> fipsDhIndex{-1};
constinit std::atomic<int> fipsEngineIndex{-1};

constinit std::atomic<std::uint32_t> krLogThreshold{0};

} // namespace krOpenSSL::state
