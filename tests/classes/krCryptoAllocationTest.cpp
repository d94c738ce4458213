// krCrypto.hpp while memory runs out: the whole answer or an exception, never another answer.
#include "support/Sweep.h"
#include "support/Trace.h"

#include <krOpenSSL/krCrypto.hpp>

#include <gtest/gtest.h>

namespace {

using namespace krOpenSSL;

struct Row {
  const char *name;
  std::function<bool()> isRight; ///< of the answer; a false of verify is one
};

} // namespace

TEST(CryptoAllocation, AnswersAreWholeOrThereIsNone) {
  const krTest::Trace quiet;
  const SecretArray<32> key;
  const SecretArray<16> iv;
  const auto keys = SealKeys<256>::random();
  const auto sealed = seal(keys, "text");
  const auto wrapped = wrapKey(key, key);
  const auto encrypted = encryptCbc<256>(key, iv, "text");
  const auto sum = digest<kroSHA256>("text");
  const auto tag = mac<kroSHA256>("key", "text");
  auto damaged = wrapped;
  damaged[0] ^= 1;
  const Row rows[] = {
      {"digest", [&] { return digest<kroSHA256>("text") == sum; }},
      {"a copied digest",
       [&] {
         Digest<kroSHA256> first;
         first.update("te");
         Digest<kroSHA256> second(first);
         return second.update("xt").final() == sum;
       }},
      {"mac", [&] { return mac<kroSHA256>("key", "text") == tag; }},
      {"verify", [&] { return verifyMac<kroSHA256>("key", "text", tag) || krTest::allocations::failed(); }},
      {"verify a forged one", [&] { return !verifyMac<kroSHA256>("key", "text", std::array<unsigned char, 32>{}); }},
      {"seal", [&] { return open(keys, seal(keys, "text")).has_value(); }},
      {"open", [&] { return open(keys, sealed).has_value(); }},
      {"encrypt", [&] { return encryptCbc<256>(key, iv, "text") == encrypted; }},
      {"decrypt", [&] { return decryptCbc<256>(key, iv, encrypted)->size() == 4; }},
      {"wrap", [&] { return wrapKey(key, key) == wrapped; }},
      {"unwrap", [&] { return unwrapKey(key, wrapped).has_value(); }},
      {"unwrap damage", [&] { return !unwrapKey(key, damaged); }},
  };
  for (const Row &row : rows) {
    SCOPED_TRACE(row.name);
    krTest::sweep([&] {
      try {
        EXPECT_TRUE(row.isRight());
      } catch (const CryptoError &) {
        EXPECT_TRUE(krTest::allocations::failed());
      } catch (const std::bad_alloc &) {
        EXPECT_TRUE(krTest::allocations::failed());
      }
    });
  }
}
