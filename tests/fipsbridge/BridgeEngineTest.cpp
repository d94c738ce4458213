// The bridge engine itself: what it holds, its life in OpenSSL's list, its random method, and how it fails without
// a module.
#include "engine/EngineList.h"
#include "support/Bridge.h"

#include "fipsbridge/BridgeIndexes.h"
#include "fipsbridge/qvCiphers.h"
#include "fipsbridge/qvDigests.h"
#include "fipsbridge/qvlibFIPS.h"
#include "support/Sweep.h"

#include <krOpenSSL/krHandles.h>

#include <algorithm>
#include <set>

namespace {

using namespace krTest;
namespace state = krOpenSSL::state;

const unsigned char kSeed[]{1, 2, 3};

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
  const Bridge bridge(false);
  ENGINE *engine = bridge.engine;
  EXPECT_STREQ(ENGINE_get_name(engine), "qvlib FIPS mode engine");
  EXPECT_STREQ(RSA_meth_get0_name(ENGINE_get_RSA(engine)), "qvlib FIPS RSA method");
  EXPECT_STREQ(DSA_meth_get0_name(ENGINE_get_DSA(engine)), "qvlib FIPS DSA method");
  EXPECT_STREQ(DH_meth_get0_name(ENGINE_get_DH(engine)), "qvlib FIPS DH method");
  EXPECT_EQ(ENGINE_get_RAND(engine), &qvFipsRandMethod);
  EXPECT_EQ(ENGINE_get_EC(engine), nullptr);
  EXPECT_EQ(ENGINE_get_pkey_meths(engine), nullptr);
  const std::array indexes{qvFipsRsaIndex(), qvFipsDsaIndex(), qvFipsDhIndex()};
  EXPECT_GE(*std::ranges::min_element(indexes), 0);
  EXPECT_EQ(ENGINE_get_init_function(engine)(engine), 1);
  EXPECT_EQ(indexes, (std::array{qvFipsRsaIndex(), qvFipsDsaIndex(), qvFipsDhIndex()}));
}

// Its methods are freed with it, each once.
TEST(BridgeEngine, IsBuiltWholeOrNotListedWhenAllocationsFail) {
  OPENSSL_init_crypto(OPENSSL_INIT_ENGINE_DYNAMIC, nullptr);
  sweep([] {
    qvlibFIPS_bind();
    if (const krOpenSSL::ENGINEPtr engine = krOpenSSL::findListedEngine("qvlibFIPS"); engine) {
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
  EXPECT_EQ(qvFipsRandSeed(kSeed, 3) + qvFipsRandBytes(out, 16) + qvFipsRandAdd(kSeed, 3, 1), 0);
  state::fipsModule = &referenceModule::table;
  EXPECT_EQ(qvFipsRandBytes(out, 16), 0);
  EXPECT_EQ(qvFipsRandAdd(kSeed, 3, 1), 3); // what the module says
  referenceModule::failing = "RngInstantiate";
  EXPECT_EQ(qvFipsRandSeed(kSeed, 3) + qvFipsRandStatus(), 0);
  referenceModule::failing.clear();
  qvFipsRandCleanup();
  EXPECT_EQ(qvFipsRandSeed(kSeed, 3), 1);
  EXPECT_EQ(qvFipsRandSeed(kSeed, 2), 2);
  EXPECT_EQ(qvFipsRandStatus(), 1);
  EXPECT_EQ(qvFipsRandBytes(out, 16), 1);
  EXPECT_EQ(qvFipsRandSeed(kSeed, -1), -1); // an int, sign-extended
  referenceModule::failing = "RngGenerate";
  EXPECT_EQ(qvFipsRandBytes(out, 16), 0);
  qvFipsRandCleanup();
  EXPECT_EQ(qvFipsRandStatus(), 0);
  qvFipsRandCleanup();
  EXPECT_EQ(referenceModule::calls("Rng"), "RngReseed RngInstantiate RngInstantiate RngReseed RngGenerate RngReseed "
                                           "RngGenerate RngUninstantiate");
  EXPECT_EQ(qvFipsRandMethod.pseudorand, qvFipsRandBytes);
  qvFipsRandSeed(kSeed, 3);
  state::fipsModule = nullptr;
  EXPECT_EQ(qvFipsRandStatus(), 1); // does not look at the table
  qvFipsRandCleanup();
  EXPECT_EQ(qvFipsRandStatus(), 0);
}
