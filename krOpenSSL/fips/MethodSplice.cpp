// Splicing the delegating signature functions into wolfEngine's methods.
#include "fips/MethodSplice.h"

#include "accessors/ErrorQueueScope.h"
#include "engine/qvlibECDSA.h"
#include "engine/qvlibRSA.h"
#include "fips/DelegatedSign.h"
#include "fips/krWolfSSLFIPS.h"
#include "log/krCustomLogger.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cstddef>

namespace krOpenSSL {
namespace {

using PkeySign = int(EVP_PKEY_CTX *context, unsigned char *signature, std::size_t *signatureLength,
                     const unsigned char *data, std::size_t length);

// What wolfEngine's EVP_PKEY methods signed with before the delegating sign was put before it.
constinit std::atomic<PkeySign *> wolfEngineRsaSign{nullptr};
constinit std::atomic<PkeySign *> wolfEngineRsaPssSign{nullptr};
constinit std::atomic<PkeySign *> wolfEngineEcSign{nullptr};

// Keys that are not delegated get the engine's own signature, untouched.
template <std::atomic<PkeySign *> &own, bool isDelegated(EVP_PKEY_CTX *) noexcept, PkeySign *delegatedSign>
int splicedSign(EVP_PKEY_CTX *context, unsigned char *signature, std::size_t *signatureLength,
                const unsigned char *data, std::size_t length) noexcept {
  PkeySign *sign = isDelegated(context) ? delegatedSign : own.load(std::memory_order_acquire);
  return sign(context, signature, signatureLength, data, length);
}

struct PkeySplice {
  int keyType;
  std::atomic<PkeySign *> &own;
  PkeySign *spliced;
};

constexpr std::array kPkeySplices{
    PkeySplice{EVP_PKEY_RSA, wolfEngineRsaSign, splicedSign<wolfEngineRsaSign, isDelegatedRsa, signDelegatedRsa>},
    PkeySplice{EVP_PKEY_RSA_PSS, wolfEngineRsaPssSign,
               splicedSign<wolfEngineRsaPssSign, isDelegatedRsa, signDelegatedRsa>},
    PkeySplice{EVP_PKEY_EC, wolfEngineEcSign, splicedSign<wolfEngineEcSign, isDelegatedEc, signDelegatedEc>},
};

// One method may serve several types: it is spliced for the first of them.
bool isSpliced(PkeySign *sign) noexcept {
  return std::any_of(kPkeySplices.begin(), kPkeySplices.end(),
                     [=](const PkeySplice &splice) { return splice.spliced == sign; });
}

void splicePkeyMethod(EVP_PKEY_METHOD *method, const PkeySplice &splice) noexcept {
  int (*initialise)(EVP_PKEY_CTX *) = nullptr;
  PkeySign *sign = nullptr;
  EVP_PKEY_meth_get_sign(method, &initialise, &sign);
  if (sign != nullptr && !isSpliced(sign)) {
    splice.own.store(sign, std::memory_order_release);
    EVP_PKEY_meth_set_sign(method, initialise, splice.spliced);
  }
}

} // namespace

void spliceRsaMethod(RSA_METHOD *method) noexcept { RSA_meth_set_priv_enc(method, qvlib_RSA_private_encrypt); }

void spliceEcKeyMethod(EC_KEY_METHOD *method) noexcept {
  const EC_KEY_METHOD *standard = EC_KEY_get_default_method();
  if (standard == nullptr) {
    krLogWrite(kWolfSource, 170, kWolfComponent, "Failed to get default EC_KEY_METHOD");
    return;
  }
  delegateSigning(method, standard);
}

void splicePkeyMethods(ENGINE *engine) noexcept {
  const ErrorQueueScope errors; // the engine may complain about a type that it does not know
  const ENGINE_PKEY_METHS_PTR methods = ENGINE_get_pkey_meths(engine);
  for (const PkeySplice &splice : kPkeySplices) {
    EVP_PKEY_METHOD *method = nullptr;
    if (methods != nullptr && methods(engine, &method, nullptr, splice.keyType) > 0 && method != nullptr) {
      splicePkeyMethod(method, splice);
    }
  }
}

} // namespace krOpenSSL
