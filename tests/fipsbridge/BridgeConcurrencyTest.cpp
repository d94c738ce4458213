// What several threads may do with the bridge at once. Built with the thread sanitizer too.
#include "support/Bridge.h"
#include "support/Race.h"

#include <gtest/gtest.h>
#include <openssl/evp.h>

#include <array>
#include <set>

using namespace krTest;

TEST(BridgeConcurrency, FirstRequestsGetTheSameWholeMethods) {
  const Bridge bridge;
  std::array<std::vector<const void *>, kThreads> got;
  race([&](std::size_t thread) {
    for (const int nid : {64, 675, 672, 673, 674, 116, 802, 803}) {
      const EVP_MD *digest = ENGINE_get_digest(bridge.engine, nid);
      EXPECT_EQ(EVP_MD_meth_get_app_datasize(digest), 216);
      got.at(thread).push_back(digest);
    }
    for (const int nid : {44, 419, 423, 427, 418, 422, 426}) {
      const EVP_CIPHER *cipher = ENGINE_get_cipher(bridge.engine, nid);
      EXPECT_EQ(EVP_CIPHER_impl_ctx_size(cipher), nid == 44 ? 384 : 256);
      got.at(thread).push_back(cipher);
    }
  });
  EXPECT_EQ(std::set(got.begin(), got.end()).size(), 1U);
}

TEST(BridgeConcurrency, ThreadsWorkEachWithTheirOwnObjects) {
  const Bridge bridge;
  race([](std::size_t) {
    for (int i = 0; i < 20; ++i) {
      std::array<unsigned char, 32> out{};
      EXPECT_EQ(EVP_Digest("abc", 3, out.data(), nullptr, EVP_sha256(), nullptr), 1);
      EXPECT_EQ(out[0], 0xBA);
      RSA_free(RSA_new());
      EXPECT_EQ(RAND_bytes(out.data(), out.size()), 1);
    }
  });
}
