// The FIPS switches and what they leave behind.
#include "support/Allocations.h"
#include "support/FipsHome.h"
#include "support/Machine.h"
#include "support/Trace.h"

#include "fipsbridge/FipsModule.h"
#include "platform/Platform.h"
#include "state/State.h"

#include <krOpenSSL/krFips.h>
#include <krOpenSSL/krLifecycle.h>

#include <gtest/gtest.h>
#include <openssl/engine.h>
#include <openssl/err.h>
#include <openssl/rand.h>

#include <functional>
#include <string>
#include <utility>

namespace {

using namespace krOpenSSL;
using krTest::FipsHome;

// The engines that serve RSA, DSA, EC, DH, random numbers, ciphers, digests and EVP_PKEY methods now.
std::string engines() {
  std::string names;
  for (ENGINE *engine : {ENGINE_get_default_RSA(), ENGINE_get_default_DSA(), ENGINE_get_default_EC(),
                         ENGINE_get_default_DH(), ENGINE_get_default_RAND(), ENGINE_get_cipher_engine(NID_aes_128_cbc),
                         ENGINE_get_digest_engine(NID_sha256), ENGINE_get_pkey_meth_engine(EVP_PKEY_RSA)}) {
    names += std::string(names.empty() ? "" : " ") + (engine != nullptr ? ENGINE_get_id(engine) : "-");
    ENGINE_finish(engine);
  }
  return names;
}

constexpr const char *kNone = "- - - - - - - -";
constexpr const char *kOrdinary = "qvlib qvlib qvlib - qvlib - - -";
constexpr const char *kFips = "wolfEngine wolfEngine wolfEngine wolfEngine wolfEngine wolfEngine wolfEngine wolfEngine";
constexpr const char *kBridge = "qvlibFIPS qvlibFIPS - qvlibFIPS qvlibFIPS qvlibFIPS qvlibFIPS -";

unsigned int close() {
  krFipsClose();
  return kFipsOk;
}

// What a host may do, and what wolfEngine's load does.
unsigned int registerAll() {
  ENGINE_register_all_complete();
  return kFipsOk;
}

unsigned int reload() {
  EXPECT_EQ(krOpenSSLEngineLoad(), 1);
  return kFipsOk;
}

} // namespace

TEST(FipsSwitch, FollowsTheStateTable) {
  const FipsHome home;
  const krTest::Trace quiet;
  krOSSLSetup();
  struct Step {
    unsigned int (*operation)();
    int use;
    unsigned int result;
    const char *engines;
  };
  const Step steps[]{
      {krFipsModeOn, 0, 0xE0050005, kOrdinary}, // refused with nothing touched
      {krFipsModeOff, 0, 0, kOrdinary},
      {krFipsModeOn, 5, 0, kFips},
      {krFipsModeOn, 1, 0, kFips},
      {krFipsModeOn, 0, 0xE0050005, kFips},
      {krFipsModeOff, 1, 0, kOrdinary},
      {[] { return krFipsModeOnEx(7); }, 1, 0, kFips},
      {reload, 0, 0, kBridge}, // wolfEngine is not chosen any more
      {registerAll, 0, 0, nullptr},
      {reload, 0, 0, kBridge},
      {close, 1, 0, kOrdinary},
      {registerAll, 1, 0, nullptr},
      {krFipsModeOff, 1, 0, kOrdinary},
      {registerAll, 1, 0, nullptr},
      {krFipsModeOn, 1, 0, kFips},
      {close, 0, 0, kOrdinary},
  };
  for (const Step &step : steps) {
    SCOPED_TRACE(&step - steps);
    EXPECT_EQ(krFipsUseOpenSSLFIPS(step.use), step.use != 0 ? 1 : 0);
    EXPECT_EQ(krFipsUsingOpenSSLFIPS(), step.use != 0 ? 1 : 0);
    EXPECT_EQ(step.operation(), step.result);
    if (step.engines != nullptr) {
      EXPECT_EQ(engines(), step.engines);
      EXPECT_EQ(krFipsMode(), step.engines == kOrdinary ? 0 : 1);
    }
    EXPECT_EQ(ERR_peek_error(), 0U);
  }
}

TEST(FipsSwitch, AFailedLoadLeavesOrdinaryMode) {
  const FipsHome home("init");
  const krTest::Trace quiet;
  krOSSLSetup();
  krFipsUseOpenSSLFIPS(1);
  EXPECT_EQ(krFipsModeOn(), 0xE0050005);
  EXPECT_EQ(krFipsMode(), 0);
  EXPECT_EQ(engines(), kOrdinary);
}

TEST(FipsSwitch, NeedsNoSetupAndOutlivesCleanup) {
  const FipsHome home;
  const krTest::Trace quiet;
  krFipsUseOpenSSLFIPS(1);
  EXPECT_EQ(krFipsModeOn(), 0U);
  EXPECT_EQ(engines(), kFips);
  unsigned char byte = 0;
  EXPECT_EQ(RAND_bytes(&byte, 1), 1);
  EXPECT_EQ(FipsHome::record().randomRequests, 1);
  krOSSLSetup();
  krOSSLCleanup();
  EXPECT_EQ(engines(), kNone);
  EXPECT_EQ(krFipsMode(), 1);
  krOSSLSetup();
  EXPECT_EQ(engines(), kFips);
}

TEST(FipsSwitch, TheThousandthLeavesNoMoreThanTheTenth) {
  const FipsHome home;
  const krTest::Trace quiet;
  state::krLogThreshold = 0;
  krFipsUseOpenSSLFIPS(1);
  krOSSLSetup();
  long tenth = 0;
  for (int n = 1; n <= 1000; ++n) {
    ASSERT_EQ(krFipsModeOn(), 0U);
    ASSERT_EQ(krFipsModeOff(), 0U);
    if (n == 10) {
      tenth = krTest::allocations::outstanding();
    }
  }
  EXPECT_EQ(krTest::allocations::outstanding(), tenth);
  EXPECT_EQ(FipsHome::record().initialisations, FipsHome::record().finishes);
}

TEST(FipsSwitch, TakesTheRandomMethodAlongButNotTheHostsOwn) {
  const FipsHome home;
  const krTest::Trace quiet;
  krOSSLSetup();
  krFipsUseOpenSSLFIPS(1);
  unsigned char byte = 0;
  EXPECT_EQ(RAND_bytes(&byte, 1), 1);
  const RAND_METHOD *ordinary = RAND_get_rand_method();

  krFipsModeOn();
  EXPECT_EQ(RAND_bytes(&byte, 1), 1);
  EXPECT_EQ(FipsHome::record().randomRequests, 1);
  krFipsModeOff();
  EXPECT_EQ(FipsHome::record().randomRequests, 2); // the bytes that are carried over
  EXPECT_EQ(RAND_get_rand_method(), ordinary);

  RAND_set_rand_method(RAND_OpenSSL()); // as a first draw before the library's set-up has it
  krFipsModeOn();
  EXPECT_EQ(RAND_bytes(&byte, 1), 1);
  EXPECT_EQ(FipsHome::record().randomRequests, 3);
}

TEST(FipsSwitch, DoesNothingAfterOpenSSLWasCleanedUp) {
  const krTest::Trace quiet;
  krOSSLSetup();
  krFipsUseOpenSSLFIPS(1);
  OPENSSL_cleanup();
  EXPECT_EQ(krFipsModeOn(), 0xE0050005);
  EXPECT_EQ(krFipsModeOff(), 0U);
  EXPECT_EQ(krSetWolfEngineLogLevel(1), 0);
  krFipsClose();
  std::_Exit(testing::Test::HasFailure() ? 1 : 0); // nobody may ask OpenSSL anything now
}

namespace {

std::string drawnAndSeeded;
int drawResult = 1;

} // namespace

TEST(FipsSwitch, CarriesRandomBytesBackWhenTheyWereDrawn) {
  const FipsHome home;
  const krTest::Trace quiet;
  krOSSLSetup();
  krFipsUseOpenSSLFIPS(1);
  static const RAND_METHOD host{[](const void *data, int length) {
                                  drawnAndSeeded += " seeded " + std::string(static_cast<const char *>(data),
                                                                             static_cast<std::size_t>(length));
                                  return 1;
                                },
                                [](unsigned char *out, int length) {
                                  drawnAndSeeded += " drawn";
                                  std::fill_n(out, length, 'x');
                                  return drawResult;
                                },
                                nullptr,
                                nullptr,
                                nullptr,
                                nullptr};
  RAND_set_rand_method(&host);
  krFipsModeOn();
  EXPECT_EQ(std::exchange(drawnAndSeeded, ""), " drawn");
  krFipsModeOff();
  EXPECT_EQ(std::exchange(drawnAndSeeded, ""), " drawn seeded " + std::string(64, 'x'));
  drawResult = 0;
  krFipsModeOff();
  EXPECT_EQ(drawnAndSeeded, " drawn");
}

TEST(FipsModulePath, IsKeptUpTo259Characters) {
  const std::string longest(259, 'p');
  const std::string tooLong(260, 'p');
  struct Row {
    const char *path;
    unsigned int result;
    const char *kept;
    int given;
    int tooLong;
  };
  for (const Row &row : {Row{longest.c_str(), 0, longest.c_str(), 1, 0}, Row{tooLong.c_str(), 0xE0050001, "", 1, 1},
                         Row{"short", 0, "short", 1, 0}, Row{nullptr, 0, "", 0, 0}, Row{"", 0, "", 1, 0}}) {
    EXPECT_EQ(krFipsSetPath(row.path), row.result);
    EXPECT_STREQ(state::fipsModulePath.data(), row.kept);
    EXPECT_EQ(state::fipsModulePathGiven, row.given);
    EXPECT_EQ(state::fipsModulePathTooLong, row.tooLong);
  }
}

TEST(FipsModuleState, IsTheModulesOwnUntilClose) {
  const FipsHome home;
  const krTest::Trace quiet;
  static int moduleState = 0;
  FipsModule module{};
  module.GetState = [] { return moduleState; };
  EXPECT_EQ(krFipsGetState(), 0);
  state::fipsModule = &module;
  for (const auto &[code, error] : {std::pair(0, 0), std::pair(3, 1), std::pair(4, 0), std::pair(-1, 0)}) {
    moduleState = code;
    EXPECT_EQ(krFipsGetState(), code);
    EXPECT_EQ(krFipsModeError(), error);
  }
  moduleState = 3;
  state::fipsModuleHandle = krTest::machine::loadLibrary(krTest::machine::kAnyLibrary);
  EXPECT_NE(state::fipsModuleHandle, nullptr);
  krFipsClose();
  EXPECT_EQ(krFipsGetState(), 0);
  EXPECT_EQ(krFipsModeError(), 0);
  EXPECT_EQ(platform::loadedModule(krTest::machine::kAnyLibrary), nullptr);
}
