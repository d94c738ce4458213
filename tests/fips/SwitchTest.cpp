// The FIPS switches and what they leave behind.
#include "fips/ModulePlace.h"
#include "log/krCustomLogger.h"
#include "support/Allocations.h"
#include "support/Engines.h"
#include "support/FipsHome.h"
#include "support/Machine.h"

#include "platform/Platform.h"
#include "state/FipsModule.h"
#include "state/State.h"

#include <krOpenSSL/krFips.h>
#include <krOpenSSL/krLifecycle.h>

#include <gtest/gtest.h>
#include <openssl/err.h>
#include <openssl/rand.h>

#include <functional>
#include <string>
#include <tuple>
#include <utility>

namespace {

using namespace krOpenSSL;
using namespace krTest;

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
  krOSSLSetup();
  const struct {
    unsigned int (*operation)();
    int use;
    const char *engines;
    unsigned int result = kFipsOk;
  } steps[]{
      // Refused with nothing touched.
      {.operation = krFipsModeOn, .use = 0, .engines = kOrdinary, .result = kFipsNotAvailable},
      {.operation = krFipsModeOff, .use = 0, .engines = kOrdinary},
      {.operation = krFipsModeOn, .use = 5, .engines = kFips},
      {.operation = krFipsModeOn, .use = 1, .engines = kFips},
      {.operation = krFipsModeOn, .use = 0, .engines = kFips, .result = kFipsNotAvailable},
      {.operation = krFipsModeOff, .use = 1, .engines = kOrdinary},
      {.operation = [] { return krFipsModeOnEx(7); }, .use = 1, .engines = kFips},
      {.operation = reload, .use = 0, .engines = kBridge}, // wolfEngine is not chosen any more
      {.operation = registerAll, .use = 0, .engines = nullptr},
      {.operation = reload, .use = 0, .engines = kBridge},
      {.operation = close, .use = 1, .engines = kOrdinary},
      {.operation = registerAll, .use = 1, .engines = nullptr},
      {.operation = krFipsModeOff, .use = 1, .engines = kOrdinary},
      {.operation = registerAll, .use = 1, .engines = nullptr},
      {.operation = krFipsModeOn, .use = 1, .engines = kFips},
      {.operation = close, .use = 0, .engines = kOrdinary},
  };
  int number = 0;
  for (const auto &[operation, use, after, result] : steps) {
    SCOPED_TRACE(++number);
    EXPECT_EQ(krFipsUseOpenSSLFIPS(use), use != 0 ? 1 : 0);
    EXPECT_EQ(krFipsUsingOpenSSLFIPS(), use != 0 ? 1 : 0);
    EXPECT_EQ(operation(), result);
    if (after != nullptr) {
      EXPECT_EQ(engines(), after);
      EXPECT_EQ(krFipsMode(), after == kOrdinary ? 0 : 1);
    }
    EXPECT_EQ(ERR_peek_error(), 0U);
  }
}

TEST(FipsSwitch, AFailedLoadLeavesOrdinaryMode) {
  const FipsHome home("init");
  krOSSLSetup();
  krFipsUseOpenSSLFIPS(1);
  EXPECT_EQ(krFipsModeOn(), 0xE0050005);
  EXPECT_EQ(krFipsMode(), 0);
  EXPECT_EQ(engines(), kOrdinary);
}

TEST(FipsSwitch, NeedsNoSetupAndOutlivesCleanup) {
  const FipsHome home;
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
  krLogThreshold = 0;
  krFipsUseOpenSSLFIPS(1);
  krOSSLSetup();
  long tenth = 0;
  for (int n = 1; n <= 1000; ++n) {
    ASSERT_EQ(krFipsModeOn(), 0U);
    ASSERT_EQ(krFipsModeOff(), 0U);
    if (n == 10) {
      tenth = allocations::outstanding();
    }
  }
  EXPECT_EQ(allocations::outstanding(), tenth);
  EXPECT_EQ(FipsHome::record().initialisations, FipsHome::record().finishes);
}

TEST(FipsSwitch, TakesTheRandomMethodAlongButNotTheHostsOwn) {
  const FipsHome home;
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
  RAND_set_rand_method(RAND_OpenSSL()); // the host's own choice, up to a change of the mode
  for (const auto stay : {+[] { krFipsModeOff(); }, krFipsClose, +[] { krOpenSSLEngineLoad(); }}) {
    stay();
    EXPECT_EQ(RAND_get_rand_method(), RAND_OpenSSL());
  }
  machine::setVariable(kStandInFails, "init");
  EXPECT_EQ(krFipsModeOn(), 0xE0050005);
  EXPECT_EQ(RAND_get_rand_method(), RAND_OpenSSL());
  machine::setVariable(kStandInFails, "");
  krFipsModeOn();
  EXPECT_EQ(RAND_bytes(&byte, 1), 1);
  EXPECT_EQ(FipsHome::record().randomRequests, 3);
  RAND_set_rand_method(RAND_OpenSSL());
  krFipsModeOff();
  EXPECT_EQ(RAND_get_rand_method(), ordinary);
}

TEST(FipsSwitch, LeavesTheLibrarysRandomMethodWhereNothingWasSetUp) {
  const FipsHome home("init");
  krFipsUseOpenSSLFIPS(1);
  EXPECT_EQ(krFipsModeOn(), 0xE0050005);
  EXPECT_NE(RAND_get_rand_method(), RAND_OpenSSL());
}

namespace {

std::string drawnAndSeeded;
int drawResult = 1;

int noteSeed(const void *data, int length) {
  drawnAndSeeded += " seeded " + std::string(static_cast<const char *>(data), static_cast<std::size_t>(length));
  return 1;
}

int noteDraw(unsigned char *out, int length) {
  drawnAndSeeded += " drawn";
  std::fill_n(out, length, 'x');
  return drawResult;
}

const RAND_METHOD kHostsOwn{noteSeed, noteDraw, nullptr, nullptr, nullptr, nullptr};

} // namespace

TEST(FipsSwitch, CarriesRandomBytesBackWhenTheyWereDrawn) {
  const FipsHome home;
  krOSSLSetup();
  krFipsUseOpenSSLFIPS(1);
  RAND_set_rand_method(&kHostsOwn);
  krFipsModeOn();
  EXPECT_EQ(std::exchange(drawnAndSeeded, ""), " drawn");
  krFipsModeOff();
  EXPECT_EQ(std::exchange(drawnAndSeeded, ""), " drawn seeded " + std::string(64, 'x'));
  drawResult = 0;
  krFipsModeOff();
  EXPECT_EQ(drawnAndSeeded, " drawn");
  EXPECT_EQ(RAND_get_rand_method(), &kHostsOwn);
}

TEST(FipsModulePath, IsKeptUpTo259Characters) {
  for (const auto &[path, kept] :
       {std::pair(std::string(259, 'p'), true), {std::string(260, 'p'), false}, {"short", true}, {"", true}}) {
    EXPECT_EQ(krFipsSetPath(path.c_str()), kept ? 0 : 0xE0050001);
    EXPECT_EQ(fipsModulePath.data(), kept ? path : "");
    EXPECT_EQ(fipsModulePathGiven, 1);
    EXPECT_EQ(fipsModulePathTooLong, kept ? 0 : 1);
  }
  EXPECT_EQ(krFipsSetPath(nullptr), 0U);
  EXPECT_EQ(fipsModulePathGiven, 0);
}

TEST(FipsModuleState, IsTheModulesOwnUntilClose) {
  const FipsHome home;
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
  fipsModuleHandle = machine::loadLibrary(machine::kAnyLibrary);
  EXPECT_NE(fipsModuleHandle, nullptr);
  krFipsClose();
  EXPECT_EQ(krFipsGetState(), 0);
  EXPECT_EQ(krFipsModeError(), 0);
  EXPECT_EQ(platform::loadedModule(machine::kAnyLibrary), nullptr);
}
