// Set-up and clean-up, engine load and unload.
#include "support/Engines.h"
#include "support/Trace.h"

#include <krOpenSSL/krLifecycle.h>

#include <gtest/gtest.h>
#include <openssl/err.h>
#include <openssl/rand.h>

#include <cstdlib>
#include <utility>

namespace {

using namespace krTest;

long blocksAfterCycles(int cycles, int (*up)(), int (*down)()) {
  for (int cycle = 0; cycle < cycles; ++cycle) {
    up();
    down();
  }
  return allocations::outstanding();
}

} // namespace

TEST(Lifecycle, OnlyTheFirstUserLoadsAndOnlyTheLastUnloads) {
  const struct {
    int (*step)();
    std::string after;
  } steps[]{{krOSSLSetup, kOrdinary},
            {krOSSLSetup, kOrdinary},
            {krOSSLCleanup, kOrdinary},
            {krOSSLCleanup, kNone},
            {krOSSLCleanup, kNone}, // unmatched: the next set-up brings the count back to 0,
                                    // no more
            {krOSSLSetup, kNone},
            {krOSSLSetup, kOrdinary},
            {krOSSLCleanup, kNone}};
  std::string before = kNone;
  for (const auto &[step, after] : steps) {
    ERR_put_error(ERR_LIB_USER, 0, 1, __FILE__, __LINE__);
    EXPECT_EQ(step(), 0);
    EXPECT_EQ(engines(), after);
    EXPECT_EQ(ERR_peek_error() == 0, before != after); // a step that does nothing leaves the error queue too
    ERR_clear_error();
    before = after;
  }
}

TEST(Lifecycle, EveryLoadRegistersTheSameEngine) {
  EXPECT_EQ(krOpenSSLEngineUnload(), 1); // there is none yet
  EXPECT_EQ(krOpenSSLEngineLoad(), 1);
  const ENGINE *first = ENGINE_get_default_RSA();
  EXPECT_EQ(krOpenSSLEngineUnload(), 1);
  EXPECT_EQ(engines(), kNone);
  EXPECT_EQ(krOpenSSLEngineLoad(), 1);
  EXPECT_EQ(ENGINE_get_default_RSA(), first);
}

TEST(Lifecycle, TheThousandthSwitchLeavesNoMoreThanTheTenth) {
  for (const auto &[up, down] :
       {std::pair(&krOSSLSetup, &krOSSLCleanup), std::pair(&krOpenSSLEngineLoad, &krOpenSSLEngineUnload)}) {
    const long tenth = blocksAfterCycles(10, up, down);
    EXPECT_EQ(blocksAfterCycles(990, up, down), tenth);
  }
}

TEST(Lifecycle, ReportsAFailedInitialisationAndStillCountsIt) {
  Trace trace;
  allocations::failNth(1);
  EXPECT_EQ(krOSSLSetup(), 1);
  allocations::failNth(0);
  EXPECT_EQ(trace.lines(), tagged("krOSSLSetup: Could not initialize OpenSSL"));
  EXPECT_EQ(krOSSLSetup(), 0); // not the first, so not tried again
  EXPECT_EQ(krOSSLCleanup(), 0);
  EXPECT_EQ(krOSSLCleanup(), 0);
  EXPECT_EQ(krOSSLSetup(), 0);
  EXPECT_EQ(engines(), kOrdinary);
}

TEST(LifecycleDeathTest, SetupRegistersNoExitHandlerAndLivesWithOne) {
  const auto exitAfterSetup = [] {
    krOSSLSetup();
    unsigned char byte = 0;
    std::exit(RAND_bytes(&byte, 1) == 1 ? 0 : 2);
  };
  const auto exitHandled = [&] {
    OPENSSL_init_crypto(0, nullptr); // has OpenSSL clean itself up at exit
    exitAfterSetup();
  };
  const auto exitWatched = [&] {
    krOSSLSetup();
    OPENSSL_atexit([] { std::_Exit(3); });
    exitAfterSetup();
  };
  EXPECT_EXIT(exitHandled(), testing::ExitedWithCode(0), "");
  EXPECT_EXIT(exitWatched(), testing::ExitedWithCode(0), "");
}
