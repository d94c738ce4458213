// HMAC through OpenSSL: published answers, and objects in every state.
#include "support/Digests.h"
#include "support/Vectors.h"
#include "support/ZeroFilled.h"

#include <gtest/gtest.h>

#include <functional>
#include <tuple>

namespace {

using namespace krTest;

constexpr std::uint64_t kTooLong = std::uint64_t{1} << 31U;
const Bytes kKey(16, 0x0b);
const Bytes kData(50, 0xdd);

template <class T> void setKey(kroHMAC<T> &hmac, const Bytes &key) { hmac.SetKey(key.data(), key.size()); }

template <class T> Bytes mac(const Bytes &key, const Bytes &data) {
  Bytes out = kUntouched;
  kroHMAC<T>()(key.data(), key.size(), data.data(), data.size(), out.data());
  return out;
}

} // namespace

TEST(HMAC, GivesThePublishedMacsInOneCallAndInPieces) {
  forEachDigest([]<class T>(const DigestRow<T> &row) {
    int answers = row.name == std::string_view("MD4") ? 6 : 0; // nobody published any: compared in pieces only
    for (Record record : readVectors("hmac.txt")) {
      SCOPED_TRACE(testing::Message() << row.name << testing::PrintToString(record["Data"]));
      const Bytes whole = mac<T>(record["Key"], record["Data"]);
      if (record.contains(row.name)) {
        Bytes expected = kUntouched;
        std::copy(record[row.name].begin(), record[row.name].end(), expected.begin());
        EXPECT_EQ(whole, expected);
        EXPECT_EQ(record[row.name].size(), row.size);
        ++answers;
      }
      kroHMAC<T> hmac;
      setKey(hmac, record["Key"]);
      for (int message = 0; message < 2; ++message) {
        hmac.Update(record["Data"].data(), 1);
        hmac.Update(record["Data"].data() + 1, record["Data"].size() - 1);
        EXPECT_EQ(finish(hmac), whole);
        hmac.Init(); // the same key again
      }
    }
    EXPECT_GE(answers, 6) << row.name;
  });
}

TEST(HMAC, CopiesGoOnFromTheSamePointOnTheirOwn) {
  const Bytes expected = mac<kroSHA256>(kKey, kData);
  kroHMAC<kroSHA256> original;
  setKey(original, kKey);
  original.Update(kData.data(), 20);
  kroHMAC<kroSHA256> constructed(original);
  kroHMAC<kroSHA256> assigned;
  setKey(assigned, kData);
  assigned = original;
  auto &self = assigned;
  assigned = self;
  for (kroHMAC<kroSHA256> *hmac : {&constructed, &original, &assigned}) {
    hmac->Update(kData.data() + 20, kData.size() - 20);
    EXPECT_EQ(finish(*hmac), expected);
  }
  const kroHMAC<kroSHA256> unkeyed;
  assigned = unkeyed; // the error queue stays empty, the main sees to it
  kroHMAC<kroSHA256> copyOfUnkeyed(unkeyed);
  for (kroHMAC<kroSHA256> *hmac : {&assigned, &copyOfUnkeyed}) {
    hmac->Init();
    update(*hmac, kData);
    EXPECT_EQ(finish(*hmac), kUntouched);
    setKey(*hmac, kKey);
    update(*hmac, kData);
    EXPECT_EQ(finish(*hmac), expected);
  }
}

TEST(HMAC, WhatCannotBeCarriedOutWritesNothing) {
  const Bytes some(1, 'x');
  const struct {
    const char *what;
    std::function<void(kroHMAC<kroSHA1> &)> calls;
    bool isStillKeyed = true;
  } rows[]{
      {.what = "a null key", .calls = [](auto &hmac) { hmac.SetKey(nullptr, 5); }, .isStillKeyed = false},
      {.what = "a key too long",
       .calls = [&](auto &hmac) { hmac.SetKey(some.data(), kTooLong); },
       .isStillKeyed = false},
      {.what = "data too long", .calls = [&](auto &hmac) { hmac.Update(some.data(), kTooLong); }},
      {.what = "null data", .calls = [](auto &hmac) { hmac.Update(nullptr, 5); }},
      {.what = "a second Final", .calls = [](auto &hmac) { finish(hmac); }},
      {.what = "a null output", .calls = [](auto &hmac) { hmac.Final(nullptr); }},
  };
  const Bytes expected = mac<kroSHA1>(kKey, kData);
  for (const auto &[what, calls, isStillKeyed] : rows) {
    SCOPED_TRACE(what);
    kroHMAC<kroSHA1> hmac;
    setKey(hmac, kKey);
    calls(hmac);
    update(hmac, kData);
    EXPECT_EQ(finish(hmac), kUntouched);
    hmac.Init();
    update(hmac, kData);
    EXPECT_EQ(finish(hmac), isStillKeyed ? expected : kUntouched);
  }
}

TEST(HMAC, NullWithoutLengthIsTheEmptyKey) {
  const Bytes expected = mac<kroSHA1>(Bytes{}, kData);
  kroHMAC<kroSHA1> hmac;
  setKey(hmac, kKey); // must not stay in force
  hmac.SetKey(nullptr, 0);
  update(hmac, kData);
  EXPECT_EQ(finish(hmac), expected);
}

TEST(HMAC, AZeroFilledObjectIsHarmless) {
  withZeroFilled<kroHMAC<kroMD5>>([](kroHMAC<kroMD5> &zeroed) {
    zeroed.Init();
    setKey(zeroed, kKey);
    update(zeroed, kData);
    EXPECT_EQ(finish(zeroed), kUntouched);
  });
}
