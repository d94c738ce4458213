// The bridge's ex-data indexes and their getters.
#include "fipsbridge/BridgeIndexes.h"

#include "accessors/ExDataIndex.h"

#include <openssl/crypto.h>

namespace krOpenSSL {
namespace {

constinit ExDataIndex rsaIndex{CRYPTO_EX_INDEX_RSA, "qvlibFIPS RSA ctx"};
constinit ExDataIndex dsaIndex{CRYPTO_EX_INDEX_DSA, "qvlibFIPS DSA ctx"};
constinit ExDataIndex dhIndex{CRYPTO_EX_INDEX_DH, "qvlibFIPS DH ctx"};
constinit ExDataIndex methodsIndex{CRYPTO_EX_INDEX_ENGINE, "qvlibFIPS methods"};

} // namespace

void makeKeyIndexes() noexcept {
  for (ExDataIndex *index : {&rsaIndex, &dsaIndex, &dhIndex}) {
    index->get();
  }
}

int engineIndex() noexcept { return methodsIndex.get(); }

} // namespace krOpenSSL

int qvFipsRsaIndex() noexcept { return krOpenSSL::rsaIndex.ifMade(); }
int qvFipsDsaIndex() noexcept { return krOpenSSL::dsaIndex.ifMade(); }
int qvFipsDhIndex() noexcept { return krOpenSSL::dhIndex.ifMade(); }
