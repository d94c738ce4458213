// ECDSA signing.
#include "engine/qvlibECDSA.h"

#include "accessors/CallOut.h"
#include "accessors/KeySize.h"
#include "accessors/krAccessors.h"
#include "accessors/krTraceLog.h"
#include "engine/ProviderSignature.h"
#include "engine/exDataIndexes.h"
#include "state/State.h"

using namespace krOpenSSL;

void krOpenSSL::delegateSigning(EC_KEY_METHOD *method, const EC_KEY_METHOD *standard) noexcept {
  int (*sign)(int, const unsigned char *, int, unsigned char *, unsigned int *, const BIGNUM *, const BIGNUM *,
              EC_KEY *) = nullptr;
  int (*signSetup)(EC_KEY *, BN_CTX *, BIGNUM **, BIGNUM **) = nullptr;
  EC_KEY_METHOD_get_sign(standard, &sign, &signSetup, nullptr);
  EC_KEY_METHOD_set_sign(method, sign, signSetup, qvlib_ECDSA_do_sign);
}

ECDSA_SIG *qvlib_ECDSA_do_sign(const unsigned char *dgst, int dgst_len, const BIGNUM *kinv, const BIGNUM *r,
                               EC_KEY *eckey) noexcept {
  if (void *ssl = krECDSA_get_ex_data(eckey, exDataIndex(ExData::ecdsa)); ssl != nullptr) {
    return qvlib_ECDSA_sign_via_provider(static_cast<SSL *>(ssl), dgst, dgst_len, kinv, r, eckey);
  }
  krTraceLog(kTraceTag, "%s: ECDSA_get_ex_data return value is NULL", __func__);
  const int size = sizeOf(eckey);
  if (const auto callback = state::ecdsaSign.load(std::memory_order_acquire); callback != nullptr) {
    return withinSize(
        ECDSASigPtr(callOutWith<ECDSA_SIG *>(eckey, dgst, nullptr, callback, dgst, dgst_len, kinv, r, eckey)), size);
  }
  ECDSA_SIG *signature = withinSize(ECDSASigPtr(krECDSA_do_sign_ex(dgst, dgst_len, kinv, r, eckey)), size);
  if (signature == nullptr) {
    krTraceLog(kTraceTag, "%s: DSA_do_sign return value is NULL", __func__);
  }
  return signature;
}

ECDSA_SIG *qvlib_ECDSA_sign_via_provider(SSL *ssl, const unsigned char *dgst, int dgst_len, const BIGNUM * /*kinv*/,
                                         const BIGNUM * /*r*/, EC_KEY *eckey) noexcept {
  return signViaProvider<ECDSASigPtr>(ssl, kEcdsaOperation, sizeOf(eckey), dgst, dgst_len, d2i_ECDSA_SIG);
}
