// Creation of the bridge's ex-data indexes and their getters.
#include "fipsbridge/BridgeIndexes.h"

#include "accessors/ErrorQueueScope.h"
#include "state/State.h"

#include <openssl/crypto.h>

namespace krOpenSSL {
namespace {

struct IndexKind {
  std::atomic<int> &index;
  int exClass;
  const char *label;
};

constexpr IndexKind kKeyKinds[]{
    {state::fipsRsaIndex, CRYPTO_EX_INDEX_RSA, "qvlibFIPS RSA ctx"},
    {state::fipsDsaIndex, CRYPTO_EX_INDEX_DSA, "qvlibFIPS DSA ctx"},
    {state::fipsDhIndex, CRYPTO_EX_INDEX_DH, "qvlibFIPS DH ctx"},
};
constexpr IndexKind kEngineKind{state::fipsEngineIndex, CRYPTO_EX_INDEX_ENGINE, "qvlibFIPS methods"};

// No lock, since OpenSSL may hold its own here: of two threads that make an index, one makes a spare that
// nobody uses.
int madeIndex(const IndexKind &kind) noexcept {
  int index = kind.index.load(std::memory_order_acquire);
  if (index != -1) {
    return index;
  }
  const ErrorQueueScope errors;
  // No functions: what is stored has its owner, and OpenSSL neither copies nor frees it.
  const int made = CRYPTO_get_ex_new_index(kind.exClass, 0, const_cast<char *>(kind.label), nullptr, nullptr, nullptr);
  return kind.index.compare_exchange_strong(index, made, std::memory_order_acq_rel) ? made : index;
}

} // namespace

void makeKeyIndexes() noexcept {
  for (const IndexKind &kind : kKeyKinds) {
    madeIndex(kind);
  }
}

int engineIndex() noexcept { return madeIndex(kEngineKind); }

} // namespace krOpenSSL

namespace state = krOpenSSL::state;

int qvFipsRsaIndex() noexcept { return state::fipsRsaIndex.load(std::memory_order_acquire); }
int qvFipsDsaIndex() noexcept { return state::fipsDsaIndex.load(std::memory_order_acquire); }
int qvFipsDhIndex() noexcept { return state::fipsDhIndex.load(std::memory_order_acquire); }
