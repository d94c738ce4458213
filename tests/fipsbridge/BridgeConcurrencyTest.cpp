// What several threads may do with the bridge at once. Built with the thread sanitizer too.
#include "support/Bridge.h"

#include <gtest/gtest.h>
#include <openssl/evp.h>

#include <array>
#include <barrier>
#include <functional>
#include <thread>

namespace {

using namespace krTest;

constexpr std::size_t kThreads = 8;

// Runs the work in threads that begin together, each with its own number.
void race(const std::function<void(std::size_t)> &work) {
  std::barrier start(kThreads);
  std::array<std::jthread, kThreads> threads;
  for (std::size_t i = 0; i < kThreads; ++i) {
    threads.at(i) = std::jthread([&, i] {
      start.arrive_and_wait();
      work(i);
    });
  }
}

constexpr std::array kCiphers{44, 419, 423, 427, 418, 422, 426};
constexpr std::array kDigests{64, 675, 672, 673, 674, 116, 802, 803};

struct Methods {
  std::array<const EVP_CIPHER *, kCiphers.size()> ciphers;
  std::array<const EVP_MD *, kDigests.size()> digests;
  bool operator==(const Methods &) const = default;
};

} // namespace

TEST(BridgeConcurrency, FirstRequestsGetTheSameWholeMethods) {
  const Bridge bridge;
  std::array<Methods, kThreads> got{};
  race([&](std::size_t thread) {
    for (std::size_t i = 0; i < kDigests.size(); ++i) {
      const EVP_MD *digest = ENGINE_get_digest(bridge.engine, kDigests.at(i));
      EXPECT_EQ(EVP_MD_meth_get_app_datasize(digest), 216);
      got.at(thread).digests.at(i) = digest;
    }
    for (std::size_t i = 0; i < kCiphers.size(); ++i) {
      const EVP_CIPHER *cipher = ENGINE_get_cipher(bridge.engine, kCiphers.at(i));
      EXPECT_EQ(EVP_CIPHER_nid(cipher), kCiphers.at(i));
      EXPECT_EQ(EVP_CIPHER_impl_ctx_size(cipher), i == 0 ? 384 : 256);
      got.at(thread).ciphers.at(i) = cipher;
    }
  });
  for (const Methods &methods : got) {
    EXPECT_EQ(methods, got[0]);
  }
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
