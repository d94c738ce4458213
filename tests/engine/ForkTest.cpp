// The random numbers of forked children.
#include "support/Draws.h"

#include <krOpenSSL/krLifecycle.h>

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>

namespace {

using namespace krTest;

// What a forked child draws, after it has done what @p first says; _Fork runs no handlers.
Bytes drawnInChild(void (*first)(), pid_t (*forking)() = fork) {
  std::array<int, 2> ends{};
  EXPECT_EQ(pipe(ends.data()), 0);
  const pid_t child = forking();
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

TEST(Fork, ChildrenRepeatNeitherTheirParentNorEachOther) {
  krOSSLSetup();
  std::vector<Bytes> draws;
  for (const auto before : {nothing, cleanUp}) { // the parent's rest of a block outlives the clean-up
    for (const auto first : {nothing, seed, add, cleanUp, forkAgain}) {
      if (before == nothing || first != seed) { // a generator that is to be seeded may be seeded alike
        draw(7);
        before();
        draws.insert(draws.end(), {drawnInChild(first), drawnInChild(first, _Fork), draw()});
      }
    }
  }
  expectNoPieceTwice(draws);
  krOSSLCleanup();
}
