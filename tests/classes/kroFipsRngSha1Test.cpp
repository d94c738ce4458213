// The FIPS 186-2 generator against independently computed answers.
#include "support/Vectors.h"

#include <krOpenSSL/krHandles.h>
#include <krOpenSSL/kroFipsRngSha1.h>

#include <gtest/gtest.h>

#include <algorithm>

namespace {

using krOpenSSL::BIGNUMPtr;
using krTest::Bytes;
using BNCtxPtr = krOpenSSL::Handle<BN_CTX, BN_CTX_free>;

const Bytes kSeed(64, 0x5a);
// The q of FIPS 186-2 Appendix 5.
const Bytes kQ{0xc7, 0x73, 0x21, 0x8c, 0x73, 0x7e, 0xc8, 0xee, 0x99, 0x3b,
               0x4f, 0x2d, 0xed, 0x30, 0xf4, 0x8e, 0xda, 0xce, 0x91, 0x5f};

kroFipsRngSha1 seeded(const Bytes &seed, const Bytes &q = {}) {
  kroFipsRngSha1 generator;
  generator.Init(seed.data(), seed.size(), q.empty() ? nullptr : q.data());
  return generator;
}

Bytes draw(kroFipsRngSha1 &generator, std::size_t length, const Bytes &xseed = {}) {
  Bytes out(length);
  generator.Generate(out.data(), length, xseed.data(), xseed.size());
  return out;
}

} // namespace

TEST(FipsRngSha1, GivesTheKnownAnswersInOneDrawAndInPieces) {
  EXPECT_TRUE(kroFipsRngSha1::Validate());
  const auto records = krTest::readVectors("fips186_2.txt");
  ASSERT_GE(records.size(), 40U);
  for (krTest::Record record : records) {
    SCOPED_TRACE(testing::PrintToString(record));
    kroFipsRngSha1 generator = seeded(record["Seed"], record["Q"]);
    if (!record["Iterate"].empty()) {
      generator.Iterate(record["Iterate"].data(), record["Iterate"].size());
    }
    kroFipsRngSha1 inPieces = generator;
    EXPECT_EQ(draw(generator, record["Out"].size(), record["XSeed"]), record["Out"]);

    Bytes pieces;
    for (std::size_t piece = 7; record["XSeed"].empty() && pieces.size() < record["Out"].size();
         piece = piece % 33 + 13) {
      const Bytes next = draw(inPieces, std::min(piece, record["Out"].size() - pieces.size()));
      pieces.insert(pieces.end(), next.begin(), next.end());
    }
    EXPECT_TRUE(pieces.empty() || pieces == record["Out"]);
  }
}

TEST(FipsRngSha1, ReducesMultiplesOfQAndTheirNeighbours) {
  struct Generator : kroFipsRngSha1 {
    using kroFipsRngSha1::ModQ;
  };
  constexpr int kBlockAt = 16; // behind two 64-bit fields
  constexpr int kBlockBytes = 44;
  Bytes steep(20, 0xff), flat(20, 0);
  flat[0] = 0x80;
  const BIGNUMPtr number(BN_new()), modulus(BN_new());
  const BNCtxPtr context(BN_CTX_new());
  for (const Bytes &q : {kQ, steep, flat}) {
    for (const char *factor : {"1", "ffffffff", "100000000", "7fffffffffffffffffffffffffffffffffffffff"}) {
      for (const BN_ULONG below : {0U, 1U, 2U}) { // one more than the multiple
        BIGNUM *x = number.get();
        BN_hex2bn(&x, factor);
        BN_bin2bn(q.data(), 20, modulus.get());
        BN_mul(x, x, modulus.get(), context.get());
        BN_add_word(x, 1);
        BN_sub_word(x, below);
        Generator generator;
        generator.Init(nullptr, 0, q.data());
        unsigned char *block = reinterpret_cast<unsigned char *>(&generator) + kBlockAt;
        BN_bn2binpad(x, block, kBlockBytes);
        generator.ModQ();
        BN_mod(x, x, modulus.get(), context.get());
        Bytes expected(kBlockBytes);
        BN_bn2binpad(x, expected.data(), kBlockBytes);
        EXPECT_EQ(Bytes(block, block + kBlockBytes), expected) << factor << " times q, and 1 - " << below;
      }
    }
  }
}

TEST(FipsRngSha1, InitWithoutAProperQKeepsTheModeAndTheRestOfTheBlock) {
  const Bytes noQ(20, 0x7f); // its top bit is clear
  for (const Bytes &q : {Bytes{}, kQ}) {
    for (const unsigned char *newQ : {noQ.data(), static_cast<const unsigned char *>(nullptr)}) {
      kroFipsRngSha1 generator = seeded(Bytes(20, 0x11), q);
      draw(generator, 7);
      kroFipsRngSha1 untouched = generator;
      generator.Init(kSeed.data(), kSeed.size(), newQ);
      EXPECT_EQ(draw(generator, 13), draw(untouched, 13));
      kroFipsRngSha1 fresh = seeded(kSeed, q);
      EXPECT_EQ(draw(generator, 40), draw(fresh, 40));
    }
  }
}

TEST(FipsRngSha1, TakesNullForNothing) {
  kroFipsRngSha1 generator = seeded(kSeed);
  kroFipsRngSha1 expected = generator;
  generator.Generate(nullptr, 20, nullptr, 0);
  EXPECT_EQ(draw(generator, 20), draw(expected, 20)); // null output draws nothing
  generator.Iterate(nullptr, 8);
  expected.Iterate(nullptr, 0);
  Bytes out(40);
  generator.Generate(out.data(), out.size(), nullptr, 8);
  EXPECT_EQ(out, draw(expected, out.size()));
}
