// The TLS key-operation provider.
#include "engine/iftProvider.h"

#include "accessors/CallOut.h"
#include "accessors/ErrorQueueScope.h"
#include "accessors/krAccessors.h"
#include "accessors/krTraceLog.h"
#include "engine/exDataIndexes.h"

#include <krOpenSSL/krDelegation.h>
#include <krOpenSSL/krHandles.h>

#include <algorithm>

namespace krOpenSSL {
namespace {

constexpr const char *kName = "ift_provider_private_key_operation_callback";
constexpr int kFailure = -1;

// Bits 0, 12, 16, 28 and 44: digests of 20, 32, 36, 48 and 64 bytes.
constexpr unsigned kShortestDigest = 20;
constexpr unsigned kDigestLengthRange = 44;
constexpr std::uint64_t kDigestLengths = 0x100010011001;

constexpr bool isRawDigestLength(int length) noexcept {
  const unsigned offset = static_cast<unsigned>(length) - kShortestDigest;
  return offset <= kDigestLengthRange && ((kDigestLengths >> offset) & 1U) != 0;
}

const ift_provider *findProvider(SSL *ssl) noexcept {
  SSL_CTX *context = krSSL_get_SSL_CTX(ssl);
  if (context == nullptr) {
    krTraceLog(kTraceTag, "%s: SSL_get_SSL_CTX return value is NULL", kName);
    return nullptr;
  }
  const void *record = SSL_CTX_get_ex_data(context, exDataIndex(ExData::sslCtx));
  if (record == nullptr) {
    krTraceLog(kTraceTag, "%s: SSL_CTX_get_ex_data return value is NULL", kName);
  }
  return static_cast<const ift_provider *>(record);
}

X509SigPtr parseDigestInfo(const unsigned char *in, int length) noexcept {
  const ErrorQueueScope errors;
  return X509SigPtr(length > 0 ? d2i_X509_SIG(nullptr, &in, length) : nullptr);
}

struct Operation {
  const ift_provider &provider;
  int type;
  int keySize;
  unsigned char *out;
  int capacity;
  std::int32_t *outLength;

  bool run(const unsigned char *digest, int length) const noexcept {
    return callOut(false, provider.callback, provider.arg, type, keySize, digest, length, out, capacity, outLength);
  }

  // The capacity passed is the larger one for RSA too, although only the key size is there.
  int checkedLength() const noexcept {
    const bool isRsa = type != kDsaOperation && type != kEcdsaOperation;
    const int limit = isRsa ? std::min(keySize, capacity) : capacity;
    return *outLength < 0 || *outLength > limit ? kFailure : *outLength;
  }
};

int runAsItIs(const Operation &operation, const unsigned char *in, int length) noexcept {
  if (!operation.run(in, length)) {
    return 0;
  }
  const int written = operation.checkedLength();
  return written == 0 ? kFailure : written;
}

int signDigestInfo(const Operation &operation, const unsigned char *in, int inLength) noexcept {
  const X509SigPtr digestInfo = parseDigestInfo(in, inLength);
  if (!digestInfo) {
    return kFailure;
  }
  const int length = krX509_digest_length(digestInfo.get());
  krTraceLog(kTraceTag, "%s: X509_digest_length returned: %d", kName, length);
  return operation.run(krX509_digest_data(digestInfo.get()), length) ? operation.checkedLength() : 0;
}

} // namespace

int providerRsaOperation(SSL *ssl, int type, int keySize, const unsigned char *in, int inLength,
                         unsigned char *out) noexcept {
  const ift_provider *provider = findProvider(ssl);
  if (provider == nullptr || provider->callback == nullptr) {
    return kFailure;
  }
  std::int32_t length = 0;
  return runAsItIs({*provider, type, keySize, out, kProviderCapacity, &length}, in, inLength);
}

} // namespace krOpenSSL

int ift_provider_private_key_operation_callback(SSL *ssl, int type, int keySize, const unsigned char *in, int inLength,
                                                unsigned char *out, int capacity, std::int32_t *outLength) noexcept {
  using namespace krOpenSSL;
  const ift_provider *provider = findProvider(ssl);
  if (provider == nullptr || provider->callback == nullptr) {
    return kFailure;
  }
  const Operation operation{*provider, type, keySize, out, capacity, outLength};
  return isRawDigestLength(inLength) ? runAsItIs(operation, in, inLength) : signDigestInfo(operation, in, inLength);
}
