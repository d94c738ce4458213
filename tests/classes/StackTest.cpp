// What the generator, and OpenSSL's SHA-1 under it, leave on the stack: the same bytes, whatever the secrets were.
// CMakeLists.txt runs it once more for each of the ways that OpenSSL computes SHA-1 in.
#include "engine/qvlibRand.h"
#include "support/Vectors.h"

#include <krOpenSSL/kroFipsRngSha1.h>

#include <gtest/gtest.h>
#include <ucontext.h>

#include <array>

namespace {

using krTest::Bytes;

struct Generator : kroFipsRngSha1 {
  using kroFipsRngSha1::DoRound;
};

// None of it is on the stack that is looked at.
Generator generator;
Bytes secret(64);
Bytes out(40);
const Bytes kQ(20, 0xc7);

// What is on a stack of its own, which was of zeros, after the work.
Bytes leftBy(void (*work)()) {
  alignas(64) static std::array<unsigned char, 1U << 16U> stack;
  stack.fill(0);
  ucontext_t here;
  static ucontext_t there;
  static const int begun = getcontext(&there); // once, for the same registers to begin with
  EXPECT_EQ(begun, 0);
  there.uc_stack.ss_sp = stack.data();
  there.uc_stack.ss_size = stack.size();
  there.uc_link = &here;
  makecontext(&there, work, 0);
  swapcontext(&here, &there);
  return {stack.begin(), stack.end()};
}

const std::pair<const char *, void (*)()> kRows[] = {
    {"Init", [] { generator.Init(secret.data(), 64, nullptr); }},
    {"Generate", [] { generator.Generate(out.data(), 40, nullptr, 0); }},
    {"Generate with XSEED", [] { generator.Generate(out.data(), 40, secret.data(), 33); }},
    {"Iterate", [] { generator.Iterate(secret.data(), 20); }},
    {"DoRound", [] { generator.DoRound(out.data(), secret.data(), 64); }},
    {"Generate modulo q",
     [] {
       generator.Init(secret.data(), 20, kQ.data());
       generator.Generate(out.data(), 40, nullptr, 0);
     }},
    {"the system's seed and draws",
     [] {
       qvlib_rand_cleanup();
       qvlib_rand_bytes(out.data(), 40);
     }},
    {"a caller's seed and stirring",
     [] {
       qvlib_rand_cleanup();
       qvlib_rand_seed(secret.data(), 64);
       qvlib_rand_add(secret.data(), 64, 0);
     }},
};

} // namespace

TEST(Stack, KeepsNothingOfTheGeneratorsSecrets) {
  for (const auto &[what, work] : kRows) {
    std::array<Bytes, 3> left; // the first comes with what happens once
    for (std::size_t run = 0; run < left.size(); ++run) {
      secret.assign(64, static_cast<unsigned char>(0x35 * (run + 1)));
      generator.Init(secret.data(), 64, nullptr);
      left.at(run) = leftBy(work);
    }
    std::size_t at = 0;
    while (at < left[1].size() && left[1][at] == left[2][at]) {
      ++at;
    }
    EXPECT_EQ(at, left[1].size()) << what << " leaves something " << left[1].size() - at << " bytes down";
  }
}
