// The digest classes: published answers, and objects in every state.
#include "support/Digests.h"
#include "support/Vectors.h"

#include <gtest/gtest.h>

#include <memory>
#include <new>

namespace {

using namespace krTest;

const Bytes kFirst(100, 'a');
const Bytes kSecond(30, 'b');

template <class Hash> Bytes digest(const Bytes &data) {
  Bytes out = kUntouched;
  Hash()(out.data(), data.data(), data.size());
  return out;
}

Bytes operator+(Bytes first, const Bytes &second) {
  first.insert(first.end(), second.begin(), second.end());
  return first;
}

} // namespace

TEST(Hash, GivesThePublishedDigestsInOneCallAndByteByByte) {
  forEachDigest([]<class T>(const DigestRow<T> &row) {
    int answers = 0;
    for (Record record : readVectors("digests.txt")) {
      if (record.contains(row.name)) {
        SCOPED_TRACE(testing::Message() << row.name << ' ' << testing::PrintToString(record["Message"]));
        const Bytes expected = record[row.name] + Bytes(kUntouched.size() - row.size, 0xEE);
        T hash;
        hash.Init();
        for (const unsigned char byte : record["Message"]) {
          hash.Update(&byte, 1);
        }
        EXPECT_EQ(finish(hash), expected);
        EXPECT_EQ(digest<T>(record["Message"]), expected);
        ++answers;
      }
    }
    EXPECT_GE(answers, 4) << row.name;
    EXPECT_EQ(EVP_MD_type(T::GetEVP_MD()), EVP_MD_type(row.algorithm));
    EXPECT_EQ(T::SupportsFips(), row.inFipsMode) << row.name;
  });
}

TEST(Hash, CopiesGoOnFromTheSamePointOnTheirOwn) {
  forEachDigest([]<class T>(const DigestRow<T> &row) {
    SCOPED_TRACE(row.name);
    T original;
    original.Init();
    update(original, kFirst);
    T constructed(original);
    T assigned;
    assigned.Init();
    update(assigned, kSecond);
    assigned = original;
    T moved;
    moved = std::move(original); // a move leaves its source as it was
    T &self = moved;
    moved = self;
    for (T *copy : {&constructed, &assigned, &moved}) {
      update(*copy, kSecond);
      EXPECT_EQ(finish(*copy), digest<T>(kFirst + kSecond));
    }
    EXPECT_EQ(finish(original), digest<T>(kFirst)); // NOLINT(bugprone-use-after-move)
    assigned = original;                            // an idle one: the copy is idle too
    EXPECT_EQ(finish(assigned), kUntouched);
  });
}

TEST(Hash, CallsOutOfOrderDoNoHarm) {
  kroSHA256 hash;
  update(hash, kFirst);
  EXPECT_EQ(finish(hash), kUntouched);
  hash.Init();
  update(hash, kFirst);
  hash.Init(); // starts anew
  update(hash, kSecond);
  hash.Update(nullptr, 0);
  EXPECT_EQ(finish(hash), digest<kroSHA256>(kSecond));
  hash.Init();
  hash.Update(nullptr, 5);
  EXPECT_EQ(finish(hash), kUntouched);
  hash.Init();
  Bytes out = kUntouched;
  hash(out.data(), kSecond.data(), kSecond.size()); // while computing
  EXPECT_EQ(out, digest<kroSHA256>(kSecond));
  EXPECT_EQ(finish(hash), kUntouched);
  hash.Init();
  hash.Final(nullptr);
  hash.Init(); // left computing: the destructor frees it

  kroHashBase none(nullptr);
  none.Init();
  update(none, kFirst);
  EXPECT_EQ(finish(none), kUntouched);
}

TEST(Hash, ZeroFillsExactlyWhatIsAsked) {
  alignas(kroSHA256) Bytes place(sizeof(kroSHA256) + 1, 0xEE);
  auto *object = new (place.data()) kroSHA256;
  object->__autoclassinit2(sizeof(kroSHA256));
  EXPECT_EQ(place, Bytes(sizeof(kroSHA256), 0) + Bytes(1, 0xEE));
  object->Init(); // without an algorithm
  EXPECT_EQ(finish(*object), kUntouched);
  std::destroy_at(object);
}
