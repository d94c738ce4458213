// RSA private encryption and decryption.
#include "engine/qvlibRSA.h"

#include "accessors/CallOut.h"
#include "accessors/KeySize.h"
#include "accessors/krAccessors.h"
#include "accessors/krTraceLog.h"
#include "engine/DefaultRsa.h"
#include "engine/exDataIndexes.h"
#include "engine/iftProvider.h"
#include "state/State.h"

#include <krOpenSSL/krDelegation.h>

using namespace krOpenSSL;

namespace {

int encryptByDefault(int flen, const unsigned char *from, unsigned char *to, RSA *rsa, int padding) noexcept {
  if (!needsCopyForDefaultMethod(rsa)) {
    return krRSA_private_encrypt(RSA_get_default_method(), flen, from, to, rsa, padding);
  }
  const RSAPtr copy = copyForDefaultMethod(rsa);
  return copy ? krRSA_private_encrypt(RSA_get_default_method(), flen, from, to, copy.get(), padding) : -1;
}

bool isWhole(const RSA *rsa) noexcept { return RSA_test_flags(rsa, KR_RSA_WHOLE_KEY) != 0; }

int decryptByProvider(SSL *ssl, int flen, const unsigned char *from, unsigned char *to, const RSA *rsa,
                      int padding) noexcept {
  switch (padding) {
  case RSA_PKCS1_PADDING:
    return providerRsaOperation(ssl, NID_rsaEncryption, sizeOf(rsa), from, flen, to);
  case RSA_PKCS1_OAEP_PADDING:
    return providerRsaOperation(ssl, NID_rsaesOaep, sizeOf(rsa), from, flen, to);
  case RSA_NO_PADDING:
    return providerRsaOperation(ssl, NID_rsa, sizeOf(rsa), from, flen, to);
  default:
    return -1;
  }
}

} // namespace

int qvlib_RSA_private_encrypt(int flen, const unsigned char *from, unsigned char *to, RSA *rsa, int padding) noexcept {
  const int size = sizeOf(rsa);
  if (void *ssl = RSA_get_ex_data(rsa, exDataIndex(ExData::rsa)); ssl != nullptr) {
    if (padding == RSA_NO_PADDING && isWhole(rsa)) {
      return providerRsaOperation(static_cast<SSL *>(ssl), NID_rsassaPss, size, from, flen, to);
    }
    std::int32_t length = 0;
    return ift_provider_private_key_operation_callback(static_cast<SSL *>(ssl), kRsaOperation, size, from, flen, to,
                                                       kProviderCapacity, &length);
  }
  if (const auto callback = state::rsaPrivateEncrypt.load(std::memory_order_acquire); callback != nullptr) {
    return withinSize(callOutWith(rsa, from, -1, callback, flen, from, to, rsa, padding), size);
  }
  const int result = encryptByDefault(flen, from, to, rsa, padding);
  krTraceLog(kTraceTag, "%s: RSA_priv_enc returned: %d", __func__, result);
  return result;
}

int qvlib_RSA_private_decrypt(int flen, const unsigned char *from, unsigned char *to, RSA *rsa, int padding) noexcept {
  if (void *ssl = isWhole(rsa) ? RSA_get_ex_data(rsa, exDataIndex(ExData::rsa)) : nullptr; ssl != nullptr) {
    return decryptByProvider(static_cast<SSL *>(ssl), flen, from, to, rsa, padding);
  }
  if (const auto callback = state::rsaPrivateDecrypt.load(std::memory_order_acquire); callback != nullptr) {
    const int size = sizeOf(rsa);
    return withinSize(callOutWith(rsa, from, -1, callback, flen, from, to, rsa, padding), size);
  }
  const int result = krRSA_priv_dec(flen, from, to, rsa, padding);
  krTraceLog(kTraceTag, "%s: RSA_priv_dec returned: %d", __func__, result);
  return result;
}
