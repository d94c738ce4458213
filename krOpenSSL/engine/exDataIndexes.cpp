// Creation of the four ex-data indexes and their exported getters.
#include "engine/exDataIndexes.h"

#include "accessors/ErrorQueueScope.h"
#include "accessors/krAccessors.h"
#include "accessors/krTraceLog.h"
#include "engine/EngineList.h"
#include "platform/Mutex.h"
#include "state/State.h"

#include <openssl/crypto.h>

#include <array>
#include <cstddef>
#include <mutex>

namespace krOpenSSL {
namespace {

struct IndexKind {
  std::atomic<int> &index;
  int exClass;
  const char *label;
  int (*create)(const IndexKind &) noexcept;
};

int createIndex(const IndexKind &kind) noexcept {
  return CRYPTO_get_ex_new_index(kind.exClass, 0, const_cast<char *>(kind.label), nullptr, nullptr, nullptr);
}

int createEcdsaIndex(const IndexKind &kind) noexcept {
  const int index = krECDSA_get_ex_new_index(0, const_cast<char *>(kind.label), nullptr, nullptr, nullptr);
  krTraceLog(kTraceTag, "%s: ECDSA_get_ex_new_index returned: %d", "kropenssl_get_ecdsa_idx", index);
  return index;
}

// In the order of ExData.
constexpr std::array kKinds{
    IndexKind{state::rsaIndex, CRYPTO_EX_INDEX_RSA, "krOpenSSL rsa idx", createIndex},
    IndexKind{state::dsaIndex, CRYPTO_EX_INDEX_DSA, "krOpenSSL dsa idx", createIndex},
    IndexKind{state::ecdsaIndex, CRYPTO_EX_INDEX_EC_KEY, "krOpenSSL ecdsa idx", createEcdsaIndex},
    IndexKind{state::sslCtxIndex, CRYPTO_EX_INDEX_SSL_CTX, "krOpenSSL ssl ctx", createIndex},
};

constinit platform::Mutex creation;

} // namespace

int exDataIndex(ExData which) noexcept {
  const IndexKind &kind = kKinds[static_cast<std::size_t>(which)];
  if (const int index = kind.index.load(std::memory_order_acquire); index != -1) {
    return index;
  }
  const std::scoped_lock lock(creation);
  int index = kind.index.load(std::memory_order_relaxed);
  if (index == -1) {
    static_cast<void>(opensslIsUsable()); // before the error queue would have OpenSSL register its exit handler
    const ErrorQueueScope errors;
    index = kind.create(kind);
    kind.index.store(index, std::memory_order_release);
  }
  return index;
}

} // namespace krOpenSSL

using krOpenSSL::ExData;
using krOpenSSL::exDataIndex;

int kropenssl_get_rsa_idx() { return exDataIndex(ExData::rsa); }
int kropenssl_get_dsa_idx() { return exDataIndex(ExData::dsa); }
int kropenssl_get_ecdsa_idx() { return exDataIndex(ExData::ecdsa); }
int kropenssl_get_ssl_ctx_idx() { return exDataIndex(ExData::sslCtx); }
