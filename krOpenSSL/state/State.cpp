// The process-wide words that rooms share.
#include "state/State.h"

namespace krOpenSSL::state {

constinit std::atomic<int> fipsMode{0};
constinit std::atomic<int> useOpenSSLFips{0};

constinit std::atomic<const FipsModule *> fipsModule{nullptr};

constinit std::atomic<RSAPrivateKeyOpCallback> rsaPrivateEncrypt{nullptr};
constinit std::atomic<RSAPrivateKeyOpCallback> rsaPrivateDecrypt{nullptr};
constinit std::atomic<DSAPrivateKeyOpCallback> dsaSign{nullptr};
constinit std::atomic<ECDSAPrivateKeyOpCallback> ecdsaSign{nullptr};

} // namespace krOpenSSL::state
