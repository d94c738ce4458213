// Set-up and clean-up, engine load and unload.
#include "support/Allocations.h"
#include "support/Trace.h"

#include <krOpenSSL/krLifecycle.h>

#include <gtest/gtest.h>
#include <openssl/engine.h>
#include <openssl/err.h>
#include <openssl/rand.h>

#include <cstdlib>
#include <string_view>
#include <utility>

namespace {

namespace allocations = krTest::allocations;

// For how many of RSA, DSA, EC and random numbers OpenSSL takes the library's engine.
int registrations() {
  int count = 0;
  for (ENGINE *engine :
       {ENGINE_get_default_RSA(), ENGINE_get_default_DSA(), ENGINE_get_default_EC(), ENGINE_get_default_RAND()}) {
    count += engine != nullptr && std::string_view(ENGINE_get_id(engine)) == "qvlib" ? 1 : 0;
    ENGINE_finish(engine);
  }
  return count;
}

long blocksAfterCycles(int cycles, int (*up)(), int (*down)()) {
  const krTest::Trace quiet;
  for (int cycle = 0; cycle < cycles; ++cycle) {
    up();
    down();
  }
  return allocations::outstanding();
}

} // namespace

TEST(Lifecycle, OnlyTheFirstUserLoadsAndOnlyTheLastUnloads) {
  const std::pair<int (*)(), int> steps[] = {
      {krOSSLSetup, 4},   {krOSSLSetup, 4},   {krOSSLCleanup, 4},
      {krOSSLCleanup, 0}, {krOSSLCleanup, 0}, // unmatched: the next set-up brings the count back to 0, no more
      {krOSSLSetup, 0},   {krOSSLSetup, 4},   {krOSSLCleanup, 0}};
  int before = 0;
  for (const auto &[step, after] : steps) {
    ERR_put_error(ERR_LIB_USER, 0, 1, __FILE__, __LINE__);
    EXPECT_EQ(step(), 0);
    EXPECT_EQ(registrations(), after);
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
  EXPECT_EQ(registrations(), 0);
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
  krTest::Trace trace;
  allocations::failNth(1);
  EXPECT_EQ(krOSSLSetup(), 1);
  allocations::failNth(0);
  EXPECT_EQ(trace.lines(), krTest::tagged("krOSSLSetup: Could not initialize OpenSSL"));
  EXPECT_EQ(krOSSLSetup(), 0); // not the first, so not tried again
  EXPECT_EQ(krOSSLCleanup(), 0);
  EXPECT_EQ(krOSSLCleanup(), 0);
  EXPECT_EQ(krOSSLSetup(), 1);
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
