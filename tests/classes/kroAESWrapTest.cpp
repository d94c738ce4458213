// AES key wrap through OpenSSL: published answers, damage, lengths, keys and copies.
#include "support/Vectors.h"
#include "support/ZeroFilled.h"

#include <krOpenSSL/kroAESWrap.h>

#include <gtest/gtest.h>
#include <openssl/aes.h>
#include <openssl/modes.h>

namespace {

using namespace krTest;

const Bytes kKek(16, 0x4b);
const Bytes kKeyData(24, 0x64);
const Bytes kIv{1, 2, 3, 4, 5, 6, 7, 8};

// Nothing when Encrypt answers false; it has to leave the output alone then.
Bytes wrapped(kroAESWrap &wrap, const Bytes &in, const unsigned char *iv = nullptr) {
  Bytes out(in.size() + 8, 0xEE);
  const bool done = wrap.Encrypt(out.data(), in.data(), in.size(), iv);
  EXPECT_TRUE(done || out == Bytes(out.size(), 0xEE));
  return done ? out : Bytes{};
}

Bytes unwrapped(kroAESWrap &wrap, const Bytes &in, const unsigned char *iv = nullptr) {
  Bytes out(in.size() - 8, 0xEE);
  const bool done = wrap.Decrypt(out.data(), out.size(), in.data(), iv);
  EXPECT_TRUE(done || out == Bytes(out.size(), 0xEE));
  return done ? out : Bytes{};
}

} // namespace

TEST(AesWrap, GivesThePublishedAnswersAndNoticesEveryFlippedBit) {
  EXPECT_TRUE(kroAESWrap::Validate());
  const auto records = readVectors("aes_wrap.txt");
  ASSERT_EQ(records.size(), 7U);
  for (Record record : records) {
    SCOPED_TRACE(testing::PrintToString(record));
    for (const std::size_t unit : {1U, 8U}) { // the key length in bytes, and in bits
      kroAESWrap wrap;
      wrap.SetEncryptKey(record["Kek"].data(), record["Kek"].size() * unit);
      EXPECT_EQ(wrapped(wrap, record["KeyData"]), record["Wrapped"]);
      wrap.SetDecryptKey(record["Kek"].data(), record["Kek"].size() * unit);
      EXPECT_EQ(unwrapped(wrap, record["Wrapped"]), record["KeyData"]);
      for (std::size_t bit = 0; bit < record["Wrapped"].size() * 8; ++bit) {
        Bytes damaged = record["Wrapped"];
        damaged[bit / 8] ^= static_cast<unsigned char>(1U << bit % 8);
        ASSERT_EQ(unwrapped(wrap, damaged), Bytes{}) << bit;
      }
    }
  }
}

TEST(AesWrap, UnwrapsUnderTheInitialValueItWasWrappedWith) {
  kroAESWrap wrap;
  kroAESWrap unwrap;
  wrap.SetEncryptKey(kKek.data(), 16);
  unwrap.SetDecryptKey(kKek.data(), 16);
  const Bytes withIv = wrapped(wrap, kKeyData, kIv.data());
  EXPECT_NE(withIv, wrapped(wrap, kKeyData));
  EXPECT_EQ(unwrapped(unwrap, withIv, kIv.data()), kKeyData);
  EXPECT_EQ(unwrapped(unwrap, withIv), Bytes{});
  Bytes otherIv = kIv;
  otherIv.back() ^= 1;
  EXPECT_EQ(unwrapped(unwrap, withIv, otherIv.data()), Bytes{});

  Bytes inPlace = kKeyData; // output over input, both ways
  inPlace.resize(32);
  EXPECT_TRUE(wrap.Encrypt(inPlace.data(), inPlace.data(), 24, kIv.data()));
  EXPECT_EQ(inPlace, withIv);
  EXPECT_TRUE(unwrap.Decrypt(inPlace.data() + 4, 24, inPlace.data(), kIv.data()));
  EXPECT_EQ(Bytes(inPlace.begin() + 4, inPlace.begin() + 28), kKeyData);
}

TEST(AesWrap, RefusesLengthsNullsAndUseWithoutAKey) {
  kroAESWrap wrap;
  EXPECT_EQ(wrapped(wrap, kKeyData), Bytes{});
  wrap.SetEncryptKey(kKek.data(), 17); // no such key, and no cipher to re-key
  EXPECT_EQ(wrapped(wrap, kKeyData), Bytes{});
  EXPECT_EQ(unwrapped(wrap, kKeyData), Bytes{});
  wrap.SetEncryptKey(kKek.data(), 16);
  Bytes out(32, 0xEE);
  constexpr std::uint64_t kCountersPast32Bits = (std::uint64_t{0xFFFFFFFF} / 6 + 1) * 8;
  for (const std::uint64_t length : {std::uint64_t{0}, std::uint64_t{4}, std::uint64_t{12}, kCountersPast32Bits}) {
    EXPECT_FALSE(wrap.Encrypt(out.data(), kKeyData.data(), length, nullptr)) << length;
    EXPECT_FALSE(wrap.Decrypt(out.data(), length, kKeyData.data(), nullptr)) << length;
  }
  EXPECT_FALSE(wrap.Encrypt(nullptr, kKeyData.data(), 16, nullptr));
  EXPECT_FALSE(wrap.Encrypt(out.data(), nullptr, 16, nullptr));
  EXPECT_FALSE(wrap.Decrypt(out.data(), 16, nullptr, nullptr));
  EXPECT_EQ(out, Bytes(32, 0xEE));
  wrap.SetEncryptKey(nullptr, 16);
  EXPECT_EQ(wrapped(wrap, kKeyData), Bytes{});
}

TEST(AesWrap, AnswersFalseInTheDirectionItIsNotKeyedFor) {
  AES_KEY schedule;
  AES_set_decrypt_key(kKek.data(), 128, &schedule);
  Bytes reversed(32); // what an unwrap takes for good when its cipher encrypts
  CRYPTO_128_wrap(&schedule, nullptr, reversed.data(), kKeyData.data(), 24, reinterpret_cast<block128_f>(AES_decrypt));
  kroAESWrap wrap;
  wrap.SetEncryptKey(kKek.data(), 16);
  EXPECT_EQ(unwrapped(wrap, reversed), Bytes{});
  EXPECT_EQ(unwrapped(wrap, wrapped(wrap, kKeyData)), Bytes{});
  wrap.SetDecryptKey(kKek.data(), 16);
  EXPECT_EQ(wrapped(wrap, kKeyData), Bytes{});
}

TEST(AesWrap, AnUnknownKeyLengthRekeysTheCipherInTheDirectionAsked) {
  const Bytes other(16, 0x0f);
  kroAESWrap expected;
  expected.SetEncryptKey(other.data(), 16);
  kroAESWrap wrap;
  wrap.SetEncryptKey(kKek.data(), 16);
  wrap.SetEncryptKey(other.data(), 1000);
  EXPECT_EQ(wrapped(wrap, kKeyData), wrapped(expected, kKeyData));
  wrap.SetDecryptKey(other.data(), 0);
  EXPECT_EQ(unwrapped(wrap, wrapped(expected, kKeyData)), kKeyData);
}

TEST(AesWrap, CopiesHaveContextsOfTheirOwn) {
  kroAESWrap original;
  original.SetEncryptKey(kKek.data(), 16);
  kroAESWrap constructed(original);
  kroAESWrap assigned;
  assigned.SetDecryptKey(kIv.data(), 17);
  assigned = original;
  kroAESWrap &self = assigned;
  assigned = self;
  const Bytes expected = wrapped(original, kKeyData);
  original.SetEncryptKey(kKeyData.data(), 24);
  EXPECT_EQ(wrapped(constructed, kKeyData), expected);
  EXPECT_EQ(wrapped(assigned, kKeyData), expected);
  assigned = kroAESWrap(); // unkeyed, and so is the copy
  EXPECT_EQ(wrapped(assigned, kKeyData), Bytes{});

  withZeroFilled<kroAESWrap>([](kroAESWrap &zeroed) {
    zeroed.SetEncryptKey(kKek.data(), 16);
    EXPECT_EQ(wrapped(zeroed, kKeyData), Bytes{});
  });
}
