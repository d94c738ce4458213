// What several threads may do at once. Built with the thread sanitizer too.
#include "support/Provider.h"
#include "support/Race.h"
#include "support/Trace.h"

#include <krOpenSSL/krLifecycle.h>

#include <gtest/gtest.h>
#include <openssl/rand.h>

#include <algorithm>
#include <array>
#include <set>

namespace {

using namespace krTest;

bool engineIsRegistered() { return ENGINE_get_default_RSA() != nullptr; }

} // namespace

TEST(Concurrency, RandomBytesAreNeverHandedOutTwice) {
  krOSSLSetup();
  std::array<std::vector<Bytes>, kThreads> drawn;
  race([&](std::size_t thread) {
    for (int i = 0; i < 500; ++i) {
      Bytes &bytes = drawn.at(thread).emplace_back(8);
      EXPECT_EQ(RAND_bytes(bytes.data(), 8), 1);
      RAND_add(&i, sizeof i, 0.0);
      EXPECT_EQ(RAND_status(), 1);
    }
  });
  std::set<Bytes> all;
  for (const auto &ofThread : drawn) {
    all.insert(ofThread.begin(), ofThread.end());
  }
  EXPECT_EQ(all.size(), kThreads * 500U);
  krOSSLCleanup();
}

TEST(Concurrency, ThreadsSignWithTheirOwnKeysAndTraceLinesStayWhole) {
  const Bytes digest(32, 0x2b);
  const Library library;
  kropenssl_get_ecdsa_idx();
  Trace trace;
  race([&](std::size_t thread) {
    EVP_PKEY *owner = softwareKey(kKinds[thread % 3]);
    Connection connection(signsWith(owner));
    const EVPPKeyPtr key = wholeCopy(owner);
    attach(key.get(), thread < 6 ? connection.ssl.get() : nullptr);
    for (int i = 0; i < 20; ++i) {
      EXPECT_TRUE(verifies(owner, digest, signDigest(key.get(), digest)));
      krEngineSetDSAPrivateKeyOpCallback(i % 2 == 0 ? nullptr : DSA_meth_get_sign(DSA_OpenSSL()));
    }
    EXPECT_EQ(connection.provider.requests.size(), thread < 6 ? 20U : 0U);
  });
  for (const std::string &line : trace.lines()) {
    EXPECT_EQ(line.rfind("krOpenSSL "), 0U) << line;
  }
}

TEST(Concurrency, RacingSetupsLoadOnceAndNestedPairsUnloadNothing) {
  race([](std::size_t) { EXPECT_EQ(krOSSLSetup(), 0); });
  EXPECT_TRUE(engineIsRegistered());
  race([](std::size_t) {
    for (int i = 0; i < 1000; ++i) {
      krOSSLSetup();
      krOSSLCleanup();
    }
  });
  EXPECT_TRUE(engineIsRegistered());
  race([](std::size_t) { krOSSLCleanup(); });
  EXPECT_FALSE(engineIsRegistered());
  krOSSLSetup(); // the count is back at 0
  EXPECT_TRUE(engineIsRegistered());
  krOSSLCleanup();
}

TEST(Concurrency, RacingThreadsGetTheSameIndexOfItsClass) {
  const auto newIndex = [](int exClass) {
    return CRYPTO_get_ex_new_index(exClass, 0, nullptr, nullptr, nullptr, nullptr);
  };
  const Trace trace;
  for (const auto &[exClass, getter] : {std::pair(CRYPTO_EX_INDEX_RSA, &kropenssl_get_rsa_idx),
                                        {CRYPTO_EX_INDEX_DSA, kropenssl_get_dsa_idx},
                                        {CRYPTO_EX_INDEX_EC_KEY, kropenssl_get_ecdsa_idx},
                                        {CRYPTO_EX_INDEX_SSL_CTX, kropenssl_get_ssl_ctx_idx}}) {
    const int before = newIndex(exClass);
    std::array<int, kThreads> indexes{};
    race([&, get = getter](std::size_t thread) { indexes.at(thread) = get(); });
    EXPECT_EQ(std::ranges::count(indexes, indexes[0]), kThreads);
    EXPECT_GT(indexes[0], before);
    EXPECT_LT(indexes[0], newIndex(exClass));
  }
}
