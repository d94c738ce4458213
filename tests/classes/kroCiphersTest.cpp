// AES-CBC, triple-DES-CBC and RC4: published answers, lengths, keys and copies.
#include "support/Vectors.h"
#include "support/ZeroFilled.h"

#include <krOpenSSL/kroCiphers.h>

#include <gtest/gtest.h>

namespace {

using namespace krTest;

constexpr std::uint64_t kTooLong = std::uint64_t{1} << 31U;

using Cbc = void (*)(unsigned char *, const unsigned char *, const unsigned char *, const unsigned char *,
                     std::uint64_t);
struct CbcRow {
  std::size_t keyBytes;
  std::size_t blockBytes;
  Cbc encrypt;
  Cbc decrypt;
};
const CbcRow kCbcRows[] = {
    {16, 16, kroAESCipher<128>::Encrypt, kroAESCipher<128>::Decrypt},
    {24, 16, kroAESCipher<192>::Encrypt, kroAESCipher<192>::Decrypt},
    {32, 16, kroAESCipher<256>::Encrypt, kroAESCipher<256>::Decrypt},
    {24, 8, kroDES3CBCCipher::Encrypt, kroDES3CBCCipher::Decrypt},
};

const CbcRow &rowOf(Record &record) {
  return *std::find_if(std::begin(kCbcRows), std::end(kCbcRows), [&](const CbcRow &row) {
    return row.keyBytes == record["Key"].size() && row.blockBytes == record["IV"].size();
  });
}

const Bytes kRc4Key{1, 2, 3, 4, 5};

Bytes keyStream(kroRC4 &rc4, std::size_t length) {
  Bytes bytes(length, 0);
  rc4.Transform(bytes.data(), bytes.data(), length);
  return bytes;
}

} // namespace

TEST(Cbc, GivesThePublishedAnswersForWholeBlocksOfAnyCount) {
  const auto records = readVectors("cbc.txt");
  ASSERT_EQ(records.size(), 5U);
  for (Record record : records) {
    SCOPED_TRACE(testing::PrintToString(record));
    const CbcRow &row = rowOf(record);
    const auto run = [&](Cbc call, const Bytes &in, std::size_t length, const Bytes &out) {
      Bytes result(in.size(), 0xEE);
      call(result.data(), record["IV"].data(), record["Key"].data(), in.data(), length);
      const auto rest = std::ssize(result) - static_cast<std::ptrdiff_t>(length - length % row.blockBytes);
      EXPECT_TRUE(std::equal(result.begin(), result.end() - rest, out.begin())) << length;
      EXPECT_EQ(std::count(result.end() - rest, result.end(), 0xEE), rest) << length;
    };
    for (std::size_t length = 0; length <= record["Plain"].size(); ++length) {
      run(row.encrypt, record["Plain"], length, record["Cipher"]);
      run(row.decrypt, record["Cipher"], length, record["Plain"]);
    }
    Bytes inPlace = record["Plain"];
    row.encrypt(inPlace.data(), record["IV"].data(), record["Key"].data(), inPlace.data(), inPlace.size());
    EXPECT_EQ(inPlace, record["Cipher"]);
  }
}

TEST(Cbc, RefusesNullAndLengthsBeyondAnInt) {
  for (const CbcRow &row : kCbcRows) {
    const Bytes key(32, 1);
    const Bytes in(16, 2);
    Bytes out(16, 0xEE);
    for (const Cbc call : {row.encrypt, row.decrypt}) {
      call(out.data(), key.data(), key.data(), in.data(), kTooLong);
      call(out.data(), nullptr, key.data(), in.data(), in.size());
      call(out.data(), key.data(), nullptr, in.data(), in.size());
      call(out.data(), key.data(), key.data(), nullptr, in.size());
      call(nullptr, key.data(), key.data(), in.data(), in.size());
    }
    EXPECT_EQ(out, Bytes(16, 0xEE));
  }
}

TEST(Rc4, GivesThePublishedKeyStreamsInPiecesAndAgain) {
  const auto records = readVectors("rc4.txt");
  ASSERT_EQ(records.size(), 7U);
  for (Record record : records) {
    SCOPED_TRACE(testing::PrintToString(record["Key"]));
    kroRC4 rc4(record["Key"].data(), record["Key"].size());
    for (int again = 0; again < 2; ++again) {
      Bytes stream = keyStream(rc4, 7);
      const Bytes rest = keyStream(rc4, 4121);
      stream.insert(stream.end(), rest.begin(), rest.end());
      EXPECT_EQ(Bytes(stream.begin(), stream.begin() + 32), record["At0"]);
      EXPECT_EQ(Bytes(stream.end() - 32, stream.end()), record["At4096"]);
      rc4.SetKey(record["Key"].data(), record["Key"].size());
    }
  }
}

TEST(Rc4, WithoutAProperKeyItWritesNothing) {
  kroRC4 rc4;
  EXPECT_EQ(keyStream(rc4, 16), Bytes(16, 0));
  for (const auto &[key, length] :
       {std::pair<const unsigned char *, std::uint64_t>(nullptr, 5), {kRc4Key.data(), 0}, {kRc4Key.data(), kTooLong}}) {
    rc4.SetKey(kRc4Key.data(), kRc4Key.size());
    rc4.SetKey(key, length);
    kroRC4 keyed(key, length);
    Bytes untouched(16, 0xEE); // a state of zeros would copy its input
    keyed.Transform(untouched.data(), Bytes(16).data(), 16);
    rc4.Transform(untouched.data(), Bytes(16).data(), 16);
    EXPECT_EQ(untouched, Bytes(16, 0xEE));
  }
  Bytes out(1, 0xEE);
  rc4.SetKey(kRc4Key.data(), kRc4Key.size());
  const Bytes start = keyStream(rc4, 4);
  rc4.Transform(out.data(), out.data(), kTooLong);
  rc4.Transform(nullptr, out.data(), 1);
  rc4.Transform(out.data(), nullptr, 1);
  EXPECT_EQ(out[0], 0xEE);
  kroRC4 whole(kRc4Key.data(), kRc4Key.size());
  keyStream(whole, 4);
  EXPECT_EQ(keyStream(rc4, 16), keyStream(whole, 16)); // what was refused used up no key stream
}

TEST(Rc4, CopiesGoOnFromTheSamePlaceOnTheirOwn) {
  kroRC4 original(kRc4Key.data(), kRc4Key.size());
  keyStream(original, 5);
  kroRC4 constructed(original);
  kroRC4 assigned;
  assigned = original;
  kroRC4 &self = assigned;
  assigned = self;
  const Bytes next = keyStream(original, 40);
  EXPECT_EQ(keyStream(constructed, 40), next);
  EXPECT_EQ(keyStream(assigned, 40), next);
  const kroRC4 unkeyed;
  assigned = unkeyed;
  kroRC4 copyOfUnkeyed(unkeyed);
  EXPECT_EQ(keyStream(assigned, 4), Bytes(4, 0));
  EXPECT_EQ(keyStream(copyOfUnkeyed, 4), Bytes(4, 0));

  withZeroFilled<kroRC4>([](kroRC4 &zeroed) {
    zeroed.SetKey(kRc4Key.data(), kRc4Key.size());
    EXPECT_EQ(keyStream(zeroed, 4), Bytes(4, 0));
  });
}
