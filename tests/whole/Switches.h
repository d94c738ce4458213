// Set-up, engines and modes there and back. Each answers whether all of it was had; what must not be is a failure.
#pragma once

#include "support/Engines.h"

#include <krOpenSSL/krFips.h>
#include <krOpenSSL/krLifecycle.h>

#include <gtest/gtest.h>
#include <openssl/err.h>
#include <openssl/rand.h>

namespace krTest {

// Whether a set-up served fully, and looked for no module in place of its engine.
inline bool setUp() {
  const int result = krOSSLSetup();
  EXPECT_TRUE(result == 0 || (result == 1 && allocations::failed()));
  while (const unsigned long code = ERR_get_error()) {
    EXPECT_FALSE(ERR_GET_LIB(code) == ERR_LIB_ENGINE && ERR_GET_REASON(code) == ENGINE_R_NO_SUCH_ENGINE);
  }
  const bool serves = engines() == kOrdinary;
  EXPECT_EQ(krOSSLCleanup(), 0);
  EXPECT_EQ(engines(), kNone);
  return serves;
}

inline bool load() {
  const int loaded = krOpenSSLEngineLoad();
  const bool serves = engines() == kOrdinary;
  EXPECT_TRUE(loaded == 1 || (loaded == 0 && engines() == kNone));
  EXPECT_EQ(krOpenSSLEngineUnload(), 1);
  return serves;
}

inline const std::string kLongPath(260, 'p');

// In FIPS mode everything is wolfEngine's, or the mode is not on.
inline bool switchModes() {
  EXPECT_EQ(krFipsUseOpenSSLFIPS(1) + krFipsUsingOpenSSLFIPS(), 2);
  EXPECT_EQ(krFipsSetPath(kLongPath.c_str()), krOpenSSL::kFipsPathTooLong);
  const unsigned int result = krFipsModeOn();
  const bool on = result == krOpenSSL::kFipsOk;
  EXPECT_TRUE(on || result == krOpenSSL::kFipsNotAvailable);
  EXPECT_EQ(krFipsMode(), on ? 1 : 0);
  EXPECT_TRUE(on ? engines() == kFips : engines().find("wolfEngine") == std::string::npos);
  const int logging = krSetWolfEngineLogLevel(1);
  EXPECT_TRUE(on || logging == 0);
  const bool again = krFipsModeOnEx(1) == krOpenSSL::kFipsOk;
  EXPECT_EQ(krFipsModeOff(), krOpenSSL::kFipsOk);
  EXPECT_TRUE(engines() != kNone || RAND_get_rand_method() == RAND_OpenSSL());
  EXPECT_EQ(krFipsGetState() + krFipsModeError() + krFipsMode(), 0);
  krFipsClose();
  return on && logging == 1 && again && engines() == kOrdinary;
}

// The bridge to the external module, which is loaded in FIPS mode when wolfEngine is not chosen any more.
inline bool loadBridge() {
  krFipsUseOpenSSLFIPS(1);
  const bool on = krFipsModeOn() == krOpenSSL::kFipsOk;
  krFipsUseOpenSSLFIPS(0);
  const int loaded = krOpenSSLEngineLoad();
  const bool serves = engines() == kBridge;
  krFipsClose();
  return on && loaded == 1 && serves;
}

} // namespace krTest
