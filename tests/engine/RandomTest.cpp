// OpenSSL's random numbers while the library is set up, and in forked children.
#include "support/Vectors.h"

#include <krOpenSSL/krLifecycle.h>

#include <gtest/gtest.h>
#include <openssl/rand.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <set>

namespace {

using krTest::Bytes;

Bytes draw(int length = 32) {
  Bytes bytes(static_cast<std::size_t>(length));
  return RAND_bytes(bytes.data(), length) == 1 ? bytes : Bytes{};
}

// What a forked child draws, after it has done what @p first says.
Bytes drawnInChild(void (*first)()) {
  std::array<int, 2> ends{};
  EXPECT_EQ(pipe(ends.data()), 0);
  const pid_t child = fork();
  if (child == 0) {
    first();
    const Bytes bytes = draw();
    _exit(write(ends[1], bytes.data(), bytes.size()) == 32 ? 0 : 1);
  }
  close(ends[1]);
  Bytes bytes(32);
  EXPECT_EQ(read(ends[0], bytes.data(), bytes.size()), 32);
  close(ends[0]);
  waitpid(child, nullptr, 0);
  return bytes;
}

// Piece by piece, so that a draw that begins with the rest of a known block is found too.
void expectNoPieceTwice(const std::vector<Bytes> &draws) {
  std::set<Bytes> pieces;
  for (const Bytes &bytes : draws) {
    ASSERT_EQ(bytes.size(), 32U);
    for (auto at = bytes.begin(); at != bytes.end(); at += 8) {
      EXPECT_TRUE(pieces.emplace(at, at + 8).second);
    }
  }
}

// What a child may do before it draws.
void nothing() {}
void seed() { RAND_seed(Bytes(100, 0x42).data(), 100); }
void add() { RAND_add(Bytes(100, 0x42).data(), 100, 100); }
void cleanUp() { RAND_get_rand_method()->cleanup(); }
void forkAgain() {
  draw(7);
  if (const pid_t child = fork(); child != 0) {
    waitpid(child, nullptr, 0);
    _exit(0);
  }
}

} // namespace

TEST(Random, ComesFromTheEngineEvenWhenItIsUnloaded) {
  krOSSLSetup();
  EXPECT_EQ(RAND_status(), 1);
  const RAND_METHOD *method = RAND_get_rand_method();
  EXPECT_NE(method->bytes, RAND_OpenSSL()->bytes);
  EXPECT_EQ(method->bytes, method->pseudorand);
  std::vector<Bytes> draws{draw(), draw()};
  RAND_seed(nullptr, 0);
  for (const auto step : {krOpenSSLEngineUnload, krOSSLCleanup, krOSSLSetup, krOSSLCleanup}) {
    step();
    draws.push_back(draw());
    EXPECT_EQ(RAND_get_rand_method(), method);
  }
  expectNoPieceTwice(draws);
}

TEST(Random, ForkedChildrenRepeatNeitherTheirParentNorEachOther) {
  krOSSLSetup();
  std::vector<Bytes> draws;
  for (const auto before : {nothing, cleanUp}) { // the parent's rest of a block outlives the clean-up
    for (const auto first : {nothing, seed, add, cleanUp, forkAgain}) {
      if (before == nothing || first != seed) { // a generator that is to be seeded may be seeded alike
        draw(7);
        before();
        draws.insert(draws.end(), {drawnInChild(first), drawnInChild(first), draw()});
      }
    }
  }
  expectNoPieceTwice(draws);
  krOSSLCleanup();
}
