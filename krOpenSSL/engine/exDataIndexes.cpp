// The four ex-data indexes of keys and contexts, and their exported getters.
#include "engine/exDataIndexes.h"

#include "accessors/ExDataIndex.h"
#include "accessors/krAccessors.h"
#include "accessors/krTraceLog.h"
#include "engine/EngineList.h"

#include <krOpenSSL/krDelegation.h>

#include <openssl/crypto.h>

#include <array>
#include <cstddef>

namespace krOpenSSL {
namespace {

int createEcdsaIndex(int /*exClass*/, const char *label) noexcept {
  const int index = krECDSA_get_ex_new_index(0, const_cast<char *>(label), nullptr, nullptr, nullptr);
  krTraceLog(kTraceTag, "%s: ECDSA_get_ex_new_index returned: %d", "kropenssl_get_ecdsa_idx", index);
  return index;
}

// In the order of ExData.
constinit std::array indexes{
    ExDataIndex{CRYPTO_EX_INDEX_RSA, "krOpenSSL rsa idx"},
    ExDataIndex{CRYPTO_EX_INDEX_DSA, "krOpenSSL dsa idx"},
    ExDataIndex{CRYPTO_EX_INDEX_EC_KEY, "krOpenSSL ecdsa idx", createEcdsaIndex},
    ExDataIndex{CRYPTO_EX_INDEX_SSL_CTX, "krOpenSSL ssl ctx"},
};

} // namespace

int exDataIndex(ExData which) noexcept {
  ExDataIndex &index = indexes[static_cast<std::size_t>(which)];
  if (index.ifMade() == -1) {
    static_cast<void>(opensslIsUsable()); // before the error queue would have OpenSSL register its exit handler
  }
  return index.get();
}

} // namespace krOpenSSL

using krOpenSSL::ExData;
using krOpenSSL::exDataIndex;

int kropenssl_get_rsa_idx() { return exDataIndex(ExData::rsa); }
int kropenssl_get_dsa_idx() { return exDataIndex(ExData::dsa); }
int kropenssl_get_ecdsa_idx() { return exDataIndex(ExData::ecdsa); }
int kropenssl_get_ssl_ctx_idx() { return exDataIndex(ExData::sslCtx); }
