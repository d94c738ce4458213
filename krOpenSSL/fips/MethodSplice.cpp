// Splicing the delegating signature functions into wolfEngine's methods.
#include "fips/MethodSplice.h"

#include "engine/qvlibECDSA.h"
#include "engine/qvlibRSA.h"
#include "fips/DelegatedSign.h"
#include "fips/krWolfSSLFIPS.h"
#include "log/krCustomLogger.h"

#include <array>
#include <atomic>

namespace krOpenSSL {
namespace {

using Sign = int(EVP_PKEY_CTX *, unsigned char *, std::size_t *, const unsigned char *, std::size_t);

// What the engine's own method for keys of that type signs with.
template <int keyType> constinit std::atomic<Sign *> ownSign{nullptr};

// Keys that are not delegated get the engine's own signature, untouched.
template <int keyType, bool isDelegated(EVP_PKEY_CTX *) noexcept, Sign *delegatedSign>
int splicedSign(EVP_PKEY_CTX *context, unsigned char *signature, std::size_t *signatureLength,
                const unsigned char *data, std::size_t length) noexcept {
  Sign *sign = isDelegated(context) ? delegatedSign : ownSign<keyType>.load(std::memory_order_acquire);
  return sign(context, signature, signatureLength, data, length);
}

struct PkeySplice {
  int keyType;
  std::atomic<Sign *> &own;
  Sign *spliced;
};

constexpr std::array kPkeySplices{
    PkeySplice{EVP_PKEY_RSA, ownSign<EVP_PKEY_RSA>, splicedSign<EVP_PKEY_RSA, isDelegatedRsa, signDelegatedRsa>},
    PkeySplice{EVP_PKEY_RSA_PSS, ownSign<EVP_PKEY_RSA_PSS>,
               splicedSign<EVP_PKEY_RSA_PSS, isDelegatedRsa, signDelegatedRsa>},
    PkeySplice{EVP_PKEY_EC, ownSign<EVP_PKEY_EC>, splicedSign<EVP_PKEY_EC, isDelegatedEc, signDelegatedEc>},
};

void splicePkeyMethod(EVP_PKEY_METHOD *method, const PkeySplice &splice) noexcept {
  int (*initialise)(EVP_PKEY_CTX *) = nullptr;
  Sign *sign = nullptr;
  EVP_PKEY_meth_get_sign(method, &initialise, &sign);
  if (sign != nullptr && sign != splice.spliced) {
    splice.own.store(sign, std::memory_order_release);
    EVP_PKEY_meth_set_sign(method, initialise, splice.spliced);
  }
}

} // namespace

void spliceRsaMethod(RSA_METHOD *method) noexcept { RSA_meth_set_priv_enc(method, qvlib_RSA_private_encrypt); }

void spliceEcKeyMethod(EC_KEY_METHOD *method) noexcept {
  const EC_KEY_METHOD *openssl = EC_KEY_get_default_method();
  if (openssl == nullptr) {
    krLogWrite(kWolfSource, 170, kWolfComponent, "Failed to get default EC_KEY_METHOD");
    return;
  }
  int (*sign)(int, const unsigned char *, int, unsigned char *, unsigned int *, const BIGNUM *, const BIGNUM *,
              EC_KEY *) = nullptr;
  int (*signSetup)(EC_KEY *, BN_CTX *, BIGNUM **, BIGNUM **) = nullptr;
  EC_KEY_METHOD_get_sign(openssl, &sign, &signSetup, nullptr);
  EC_KEY_METHOD_set_sign(method, sign, signSetup, qvlib_ECDSA_do_sign);
}

void splicePkeyMethods(ENGINE *engine) noexcept {
  const ENGINE_PKEY_METHS_PTR methods = ENGINE_get_pkey_meths(engine);
  for (const PkeySplice &splice : kPkeySplices) {
    EVP_PKEY_METHOD *method = nullptr;
    if (methods != nullptr && methods(engine, &method, nullptr, splice.keyType) > 0 && method != nullptr) {
      splicePkeyMethod(method, splice);
    }
  }
}

} // namespace krOpenSSL
