// ECDSA signing.
#include "engine/qvlibECDSA.h"

#include "accessors/CallOut.h"
#include "accessors/krAccessors.h"
#include "accessors/krTraceLog.h"
#include "engine/ProviderSignature.h"
#include "engine/exDataIndexes.h"
#include "state/State.h"

using namespace krOpenSSL;

ECDSA_SIG *qvlib_ECDSA_do_sign(const unsigned char *dgst, int dgst_len, const BIGNUM *kinv, const BIGNUM *r,
                               EC_KEY *eckey) noexcept {
  if (void *ssl = krECDSA_get_ex_data(eckey, exDataIndex(ExData::ecdsa)); ssl != nullptr) {
    return qvlib_ECDSA_sign_via_provider(static_cast<SSL *>(ssl), dgst, dgst_len, kinv, r, eckey);
  }
  krTraceLog(kTraceTag, "%s: ECDSA_get_ex_data return value is NULL", __func__);
  if (const auto callback = state::ecdsaSign.load(std::memory_order_acquire); callback != nullptr) {
    return callOut<ECDSA_SIG *>(nullptr, callback, dgst, dgst_len, kinv, r, eckey);
  }
  ECDSA_SIG *signature = krECDSA_do_sign_ex(dgst, dgst_len, kinv, r, eckey);
  if (signature == nullptr) {
    krTraceLog(kTraceTag, "%s: DSA_do_sign return value is NULL", __func__);
  }
  return signature;
}

ECDSA_SIG *qvlib_ECDSA_sign_via_provider(SSL *ssl, const unsigned char *dgst, int dgst_len, const BIGNUM * /*kinv*/,
                                         const BIGNUM * /*r*/, EC_KEY *eckey) noexcept {
  return signViaProvider<ECDSA_SIG>(ssl, kEcdsaOperation, ECDSA_size(eckey), dgst, dgst_len, d2i_ECDSA_SIG);
}
