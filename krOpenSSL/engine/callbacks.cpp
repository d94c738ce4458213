// The exported setters of the callback slots.
#include "state/State.h"

namespace state = krOpenSSL::state;

void krEngineSetRSAPrivateKeyOpCallback(RSAPrivateKeyOpCallback callback, int selector) {
  (selector != 0 ? state::rsaPrivateEncrypt : state::rsaPrivateDecrypt).store(callback, std::memory_order_release);
}

void krEngineSetDSAPrivateKeyOpCallback(DSAPrivateKeyOpCallback callback) {
  state::dsaSign.store(callback, std::memory_order_release);
}

void krEngineSetECDSAPrivateKeyOpCallback(ECDSAPrivateKeyOpCallback callback) {
  state::ecdsaSign.store(callback, std::memory_order_release);
}
