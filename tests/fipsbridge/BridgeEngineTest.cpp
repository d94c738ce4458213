// The bridge engine itself: what it holds, its life in OpenSSL's list, its random method, and how it fails without
// a module.
#include "support/Bridge.h"

#include "fipsbridge/BridgeIndexes.h"
#include "fipsbridge/qvCiphers.h"
#include "fipsbridge/qvDigests.h"
#include "fipsbridge/qvlibFIPS.h"
#include "support/Keys.h"
#include "support/Sweep.h"

#include <krOpenSSL/krHandles.h>

#include <set>

namespace {

using namespace krTest;
namespace state = krOpenSSL::state;

using ListedEngine = krOpenSSL::Handle<ENGINE, ENGINE_free>;

const unsigned char kSeed[]{1, 2, 3};

/// The bridge in OpenSSL's list. ENGINE_by_id would go on to search for a module of that name.
ListedEngine listedBridge() {
  ENGINE *engine = ENGINE_get_first();
  while (engine != nullptr && std::string_view("qvlibFIPS") != ENGINE_get_id(engine)) {
    engine = ENGINE_get_next(engine);
  }
  return ListedEngine(engine);
}

/// The distinct methods that a selector gives for its own list.
template <class Method>
std::set<const Method *> all(ENGINE *engine, int (*select)(ENGINE *, const Method **, const int **, int) noexcept) {
  const int *nids = nullptr;
  const int count = select(engine, nullptr, &nids, 0);
  std::set<const Method *> methods;
  for (int i = 0; i < count; ++i) {
    const Method *method = nullptr;
    select(engine, &method, nullptr, nids[i]);
    methods.insert(method);
  }
  return methods;
}

} // namespace

TEST(BridgeEngine, HoldsEveryMethodAndIsRegisteredForAll) {
  EXPECT_TRUE(qvFipsRsaIndex() == -1 && qvFipsDsaIndex() == -1 && qvFipsDhIndex() == -1);
  const Bridge bridge(false);
  ENGINE *engine = bridge.engine;
  EXPECT_STREQ(ENGINE_get_name(engine), "qvlib FIPS mode engine");
  EXPECT_STREQ(RSA_meth_get0_name(ENGINE_get_RSA(engine)), "qvlib FIPS RSA method");
  EXPECT_STREQ(DSA_meth_get0_name(ENGINE_get_DSA(engine)), "qvlib FIPS DSA method");
  EXPECT_STREQ(DH_meth_get0_name(ENGINE_get_DH(engine)), "qvlib FIPS DH method");
  EXPECT_EQ(ENGINE_get_RAND(engine), &qvFipsRandMethod);
  EXPECT_TRUE(ENGINE_get_EC(engine) == nullptr && ENGINE_get_pkey_meths(engine) == nullptr);
  EXPECT_TRUE(ENGINE_get_finish_function(engine) == nullptr && ENGINE_get_flags(engine) == 0);
  const std::array indexes{qvFipsRsaIndex(), qvFipsDsaIndex(), qvFipsDhIndex()};
  EXPECT_TRUE(indexes[0] >= 0 && indexes[1] >= 0 && indexes[2] >= 0);
  EXPECT_EQ(ENGINE_get_init_function(engine)(engine), 1);
  EXPECT_EQ(indexes, (std::array{qvFipsRsaIndex(), qvFipsDsaIndex(), qvFipsDhIndex()}));
}

TEST(BridgeEngine, KeepsItsMethodsWhenASecondOneIsMade) {
  OPENSSL_init_crypto(OPENSSL_INIT_ENGINE_DYNAMIC, nullptr); // a list that is never empty grows nothing else
  qvlibFIPS_bind();
  const ListedEngine engine = listedBridge();
  const auto ciphers = all(engine.get(), qv_ciphers);
  const auto digests = all(engine.get(), qv_digests);
  EXPECT_TRUE(ciphers.size() == 7 && digests.size() == 5);
  const long before = allocations::outstanding();
  qvlibFIPS_bind();
  EXPECT_EQ(allocations::outstanding(), before);
  EXPECT_EQ(ERR_peek_error(), 0U);
  EXPECT_EQ(all(engine.get(), qv_ciphers), ciphers);
  EXPECT_EQ(all(engine.get(), qv_digests), digests);
  ENGINE_remove(engine.get());
}

// Its methods are freed with it, each once.
TEST(BridgeEngine, IsBuiltWholeOrNotListedWhenAllocationsFail) {
  OPENSSL_init_crypto(OPENSSL_INIT_ENGINE_DYNAMIC, nullptr);
  sweep([] {
    qvlibFIPS_bind();
    if (const ListedEngine engine = listedBridge(); engine) {
      all(engine.get(), qv_ciphers); // a method that fails is built at the next request
      all(engine.get(), qv_digests);
      const allocations::Spared spared;
      EXPECT_FALSE(all(engine.get(), qv_ciphers).contains(nullptr));
      EXPECT_FALSE(all(engine.get(), qv_digests).contains(nullptr));
      ENGINE_remove(engine.get());
    }
    ERR_clear_error();
  });
}

TEST(BridgeEngine, RandomNumbersComeFromTheModule) {
  unsigned char out[16];
  EXPECT_TRUE(qvFipsRandSeed(kSeed, 3) == 0 && qvFipsRandBytes(out, 16) == 0 && qvFipsRandAdd(kSeed, 3, 1) == 0);
  state::fipsModule = &referenceModule::table;
  EXPECT_EQ(qvFipsRandBytes(out, 16), 0);
  EXPECT_EQ(qvFipsRandAdd(kSeed, 3, 1), 3); // what the module says
  referenceModule::failing = "RngInstantiate";
  EXPECT_TRUE(qvFipsRandSeed(kSeed, 3) == 0 && qvFipsRandStatus() == 0);
  referenceModule::failing.clear();
  qvFipsRandCleanup();
  EXPECT_TRUE(qvFipsRandSeed(kSeed, 3) == 1 && qvFipsRandStatus() == 1);
  EXPECT_TRUE(qvFipsRandSeed(kSeed, 2) == 2 && qvFipsRandStatus() == 1);
  EXPECT_EQ(qvFipsRandBytes(out, 16), 1);
  EXPECT_EQ(qvFipsRandSeed(kSeed, -1), -1); // an int, sign-extended
  referenceModule::failing = "RngGenerate";
  EXPECT_EQ(qvFipsRandBytes(out, 16), 0);
  qvFipsRandCleanup();
  EXPECT_EQ(qvFipsRandStatus(), 0);
  qvFipsRandCleanup();
  EXPECT_EQ(referenceModule::calls("Rng"), "RngReseed RngInstantiate RngInstantiate RngReseed RngGenerate RngReseed "
                                           "RngGenerate RngUninstantiate");
  EXPECT_TRUE(qvFipsRandMethod.bytes == qvFipsRandBytes && qvFipsRandMethod.pseudorand == qvFipsRandBytes);
  qvFipsRandSeed(kSeed, 3);
  state::fipsModule = nullptr;
  EXPECT_EQ(qvFipsRandStatus(), 1); // does not look at the table
  qvFipsRandCleanup();
  EXPECT_EQ(qvFipsRandStatus(), 0);
}

// FIPS mode with the choice of OpenSSL's own provider withdrawn, and back: the thousandth time as the first.
TEST(BridgeEngine, SwitchesBackAndForthWithFlatMemory) {
  EVP_PKEY *owner = softwareKey(Kind::rsa);
  const Bytes digest(32, 0x2b);
  const Trace quiet;
  krOpenSSLEngineLoad();
  RAND_status(); // as the set-up does: from now on OpenSSL stays with this random method
  krOpenSSLEngineUnload();
  long before = 0;
  for (int i = 0; i < 1000; ++i) {
    before = i == 1 ? allocations::outstanding() : before;
    state::fipsMode = 1;
    ASSERT_EQ(krOpenSSLEngineLoad(), 1);
    ASSERT_STREQ(ENGINE_get_id(state::activeEngine), "qvlibFIPS");
    ASSERT_EQ(signDigest(wholeCopy(owner).get(), digest), Bytes());
    ERR_clear_error();
    state::fipsMode = 0;
    krOpenSSLEngineUnload();
    ASSERT_EQ(krOpenSSLEngineLoad(), 1);
    ASSERT_STREQ(ENGINE_get_id(state::activeEngine), "qvlib");
    ASSERT_TRUE(i % 100 != 0 || verifies(owner, digest, signDigest(wholeCopy(owner).get(), digest)));
    krOpenSSLEngineUnload();
  }
  EXPECT_EQ(allocations::outstanding(), before);
}
