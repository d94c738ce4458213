// OpenSSL's random numbers while the library is set up.
#include "support/Draws.h"

#include <krOpenSSL/krLifecycle.h>

#include <gtest/gtest.h>
#include <openssl/rand.h>

using namespace krTest;

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
