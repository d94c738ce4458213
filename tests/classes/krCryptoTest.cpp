// krCrypto.hpp in ordinary mode: published answers, and everything that must not pass.
#include "support/Digests.h"
#include "support/Trace.h"

#include <krOpenSSL/krCrypto.hpp>

#include <gtest/gtest.h>

namespace {

using namespace krOpenSSL;
using namespace krTest;

template <class Range> Bytes bytesOf(const Range &range) { return {range.begin(), range.end()}; }
Bytes bytesOf(const std::optional<SecretBytes> &bytes) { return bytes ? bytesOf(*bytes) : kUntouched; }

// Calls with the number of key bits of a record whose key is an AES key.
template <class Use> void withBits(const Bytes &key, Use use) {
  key.size() == 16   ? use.template operator()<128>()
  : key.size() == 24 ? use.template operator()<192>()
                     : use.template operator()<256>();
}

const std::string kText = "sealed, and more than one block";

} // namespace

TEST(Crypto, GivesThePublishedDigestsAndMacs) {
  const Trace quiet;
  forEachDigest([]<class T>(const DigestRow<T> &row) {
    if constexpr (HashClass<T>) {
      SCOPED_TRACE(row.name);
      EXPECT_EQ(kDigestBytes<T>, row.size);
      EXPECT_EQ(kBlockBytes<T>, static_cast<std::size_t>(EVP_MD_block_size(row.algorithm)));
      EXPECT_EQ(kSupportsFips<T>, row.inFipsMode);
      for (Record record : readVectors("digests.txt")) {
        if (record.contains(row.name)) {
          EXPECT_EQ(bytesOf(digest<T>(record["Message"])), record[row.name]);
        }
      }
      for (Record record : readVectors("hmac.txt")) {
        if (record.contains(row.name)) {
          EXPECT_EQ(bytesOf(mac<T>(record["Key"], record["Data"])), record[row.name]);
          EXPECT_TRUE(verifyMac<T>(record["Key"], record["Data"], record[row.name]));
          Bytes tag = record[row.name];
          tag.back() ^= 1;
          EXPECT_FALSE(verifyMac<T>(record["Key"], record["Data"], tag));
          tag.pop_back();
          EXPECT_FALSE(verifyMac<T>(record["Key"], record["Data"], tag)); // not the whole
        }
      }
    }
  });
}

TEST(Crypto, CbcGivesThePublishedAnswersInOnePieceAndInMany) {
  const Trace quiet;
  for (Record record : readVectors("cbc.txt")) {
    if (record["IV"].size() != kAesBlockBytes) {
      continue;
    }
    withBits(record["Key"], [&]<unsigned Bits>() {
      const SecretArray<Bits / 8> key{ByteView(record["Key"])};
      const CbcIv iv{SecretArray<16>(ByteView(record["IV"]))};
      const Bytes whole = encryptCbc<Bits>(key, iv, record["Plain"]);
      EXPECT_EQ(Bytes(whole.begin(), whole.end() - 16), record["Cipher"]);
      EXPECT_EQ(bytesOf(decryptCbc<Bits>(key, iv, whole)), record["Plain"]);
      Bytes inPieces;
      detail::appendEncrypted<Bits>(inPieces, key, iv.bytes, record["Plain"], 32);
      EXPECT_EQ(inPieces, whole);
      // Blocks of either value that the output is filled with before.
      for (const unsigned char fill : {detail::kFill, detail::kOtherFill}) {
        const Bytes filled(48, fill);
        EXPECT_EQ(bytesOf(detail::decrypt<Bits>(key, iv.bytes, encryptCbc<Bits>(key, iv, filled), 16)), filled);
      }
    });
  }
}

TEST(Crypto, TakesNoPaddingButTheRightOne) {
  const Trace quiet;
  const SecretArray<32> key;
  const SecretArray<16> iv;
  for (unsigned last = 0; last < 256; ++last) {
    for (unsigned wrongAt = 0; wrongAt <= 16; ++wrongAt) { // 16: nowhere
      Bytes block(16, static_cast<unsigned char>(last));
      Bytes encrypted(16);
      if (wrongAt < 16) {
        block[15 - wrongAt] ^= 0x20;
      }
      kroAESCipher<256>::Encrypt(encrypted.data(), iv.data(), key.data(), block.data(), 16);
      const unsigned count = block[15];
      const bool right = count >= 1 && count <= 16 &&
                         std::all_of(block.end() - count, block.end(), [&](auto byte) { return byte == count; });
      EXPECT_EQ(decryptCbc<256>(key, iv, encrypted).has_value(), right) << last << ' ' << wrongAt;
    }
  }
  for (const std::size_t length : {0U, 1U, 15U, 17U}) {
    EXPECT_FALSE(decryptCbc<256>(key, iv, Bytes(length)));
  }
}

TEST(Crypto, ASealedTextHasTheDocumentedFormat) {
  const Trace quiet;
  const auto keys = SealKeys<192>::random();
  const Bytes sealed = seal(keys, kText, "who");
  const Bytes raw = bytesOf(keys.bytes());
  ASSERT_EQ(sealed.size(), 18 + 32 + 32U);
  EXPECT_EQ(Bytes(sealed.begin(), sealed.begin() + 2), (Bytes{1, 24}));
  Bytes authenticated(sealed.begin(), sealed.begin() + 18);
  authenticated.insert(authenticated.end(), {0, 0, 0, 0, 0, 0, 0, 3, 'w', 'h', 'o'});
  authenticated.insert(authenticated.end(), sealed.begin() + 18, sealed.end() - 32);
  EXPECT_TRUE(verifyMac<kroSHA256>(std::span(raw).subspan(24), authenticated, std::span(sealed).last(32)));
  const auto text = decryptCbc<192>(std::span(raw).first<24>(), std::span(sealed).subspan<2, 16>(),
                                    std::span(sealed).subspan(18, 32));
  EXPECT_EQ(bytesOf(text), bytesOf(kText));
  EXPECT_NE(seal(keys, kText, "who"), sealed); // another initial value
}

TEST(Crypto, OpensNothingButWhatWasSealed) {
  const Trace quiet;
  const auto keys = SealKeys<128>::random();
  for (const std::string &text : {std::string(), std::string(16, 'Z'), kText}) {
    const Bytes sealed = seal(keys, text, "who");
    EXPECT_EQ(bytesOf(open(keys, sealed, "who")), bytesOf(text));
    for (std::size_t bit = 0; bit < sealed.size() * 8; ++bit) {
      Bytes flipped = sealed;
      flipped[bit / 8] ^= static_cast<unsigned char>(1U << bit % 8);
      EXPECT_FALSE(open(keys, flipped, "who")) << bit;
    }
    for (std::size_t length = 0; length < sealed.size(); ++length) {
      EXPECT_FALSE(open(keys, std::span(sealed).first(length), "who")) << length;
    }
    for (const int at : {2, 18, 34}) { // initial value, blocks
      Bytes reordered = sealed;
      std::rotate(reordered.begin() + at, reordered.begin() + at + 16, reordered.end());
      EXPECT_FALSE(open(keys, reordered, "who")) << at;
    }
    for (const ByteView other : {ByteView("whp"), ByteView("wh"), ByteView("")}) {
      EXPECT_FALSE(open(keys, sealed, other));
    }
    EXPECT_FALSE(open(SealKeys<128>::random(), sealed, "who"));
    SecretArray<64> longer;
    std::ranges::copy(keys.bytes(), longer.begin());
    EXPECT_FALSE(open(SealKeys<256>(longer), sealed, "who"));
  }
}

TEST(Crypto, WrapsAsPublishedAndUnwrapsNothingElse) {
  const Trace quiet;
  for (Record record : readVectors("aes_wrap.txt")) {
    withBits(record["Kek"], [&]<unsigned Bits>() {
      const SecretArray<Bits / 8> kek{ByteView(record["Kek"])};
      Bytes wrapped = wrapKey(kek, record["KeyData"]);
      EXPECT_EQ(wrapped, record["Wrapped"]);
      EXPECT_EQ(bytesOf(unwrapKey(kek, wrapped)), record["KeyData"]);
      for (std::size_t bit = 0; bit < wrapped.size() * 8; ++bit) {
        wrapped[bit / 8] ^= static_cast<unsigned char>(1U << bit % 8);
        EXPECT_FALSE(unwrapKey(kek, wrapped)) << bit;
        wrapped[bit / 8] ^= static_cast<unsigned char>(1U << bit % 8);
      }
      for (std::size_t length = 0; length < wrapped.size(); ++length) {
        EXPECT_FALSE(unwrapKey(kek, std::span(wrapped).first(length))) << length;
      }
      for (const std::size_t length : {0U, 4U, 12U}) {
        EXPECT_THROW((void)wrapKey(kek, Bytes(length)), CryptoError);
      }
    });
  }
}

TEST(Crypto, ObjectsEndOnceAndCopiesGoOnAlone) {
  const Trace quiet;
  Digest<kroSHA256> sum;
  sum.update("a");
  Digest<kroSHA256> copy(sum);
  Digest<kroSHA256> moved(std::move(sum));
  for (auto *each : {&sum, &copy, &moved}) { // NOLINT(bugprone-use-after-move): a move copies
    EXPECT_EQ(each->update("bc").final(), digest<kroSHA256>("abc"));
    EXPECT_THROW((void)each->final(), CryptoError);
    EXPECT_THROW(each->update("d"), CryptoError);
  }
  const auto tag = mac<kroSHA256>("key", "abc");
  Mac<kroSHA256> mac("key");
  EXPECT_TRUE(mac.update("a").update(ByteView()).update("bc").verify(tag));
  EXPECT_FALSE(mac.verify(tag));
  EXPECT_THROW((void)mac.final(), CryptoError);
  EXPECT_THROW(Mac<kroSHA256>(""), CryptoError);
  EXPECT_FALSE(verifyMac<kroSHA256>(ByteView(), "abc", tag));
}

TEST(Crypto, NoticesWorkThatWritesNothingWhateverTheWorkWouldWrite) {
  std::array<unsigned char, 16> out;
  EXPECT_THROW(detail::write(out, [] {}), CryptoError);
  for (unsigned value = 0; value < 256; ++value) {
    EXPECT_NO_THROW(detail::write(out, [&] { out.fill(static_cast<unsigned char>(value)); }));
  }
}

TEST(Crypto, HexadecimalTextIsWholeOrRefused) {
  for (unsigned code = 0; code < 256; ++code) {
    const char digit = static_cast<char>(code);
    const std::string two{'0', digit};
    if (std::isxdigit(static_cast<int>(code)) != 0) {
      EXPECT_EQ(bytesOf(unhex(two)), Bytes{static_cast<unsigned char>(std::stoi(two, nullptr, 16))});
    } else {
      EXPECT_THROW((void)unhex(two), CryptoError) << code;
      EXPECT_THROW((void)unhex(std::string{digit, '0'}), CryptoError) << code;
    }
    EXPECT_EQ(bytesOf(unhex(hex(std::string{digit}))), bytesOf(std::string{digit}));
  }
  EXPECT_THROW((void)unhex("abc"), CryptoError);
  EXPECT_NE(randomBytes(32), randomBytes(32));
  EXPECT_TRUE(randomBytes(0).empty());
}
