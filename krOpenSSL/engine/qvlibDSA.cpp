// DSA signing.
#include "engine/qvlibDSA.h"

#include "accessors/CallOut.h"
#include "accessors/KeySize.h"
#include "accessors/krAccessors.h"
#include "accessors/krTraceLog.h"
#include "engine/ProviderSignature.h"
#include "engine/exDataIndexes.h"
#include "state/State.h"

using namespace krOpenSSL;

DSA_SIG *qvlib_DSA_do_sign(const unsigned char *dgst, int dlen, DSA *dsa) noexcept {
  if (void *ssl = DSA_get_ex_data(dsa, exDataIndex(ExData::dsa)); ssl != nullptr) {
    return qvlib_DSA_sign_via_provider(static_cast<SSL *>(ssl), dgst, dlen, dsa);
  }
  const int size = sizeOf(dsa);
  if (const auto callback = state::dsaSign.load(std::memory_order_acquire); callback != nullptr) {
    return withinSize(DSASigPtr(callOutWith<DSA_SIG *>(dsa, dgst, nullptr, callback, dgst, dlen, dsa)), size);
  }
  DSA_SIG *signature = withinSize(DSASigPtr(krDSA_do_sign(dgst, dlen, dsa)), size);
  if (signature == nullptr) {
    krTraceLog(kTraceTag, "%s: DSA_do_sign return value is NULL", __func__);
  }
  return signature;
}

DSA_SIG *qvlib_DSA_sign_via_provider(SSL *ssl, const unsigned char *dgst, int dlen, DSA *dsa) noexcept {
  return signViaProvider<DSASigPtr>(ssl, kDsaOperation, sizeOf(dsa), dgst, dlen, d2i_DSA_SIG);
}
