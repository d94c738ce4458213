// The wolfEngine loader, step by step, as its log lines tell.
#include "fips/ActiveEngine.h"
#include "support/FipsHome.h"
#include "support/Machine.h"
#include "support/Trace.h"
#include "support/Vectors.h"

#include "engine/EngineList.h"
#include "engine/qvlibRSA.h"
#include "fips/krWolfSSLFIPS.h"
#include "state/State.h"

#include <krOpenSSL/krFips.h>
#include <krOpenSSL/krHandles.h>
#include <krOpenSSL/krLifecycle.h>

#include <gtest/gtest.h>
#include <openssl/err.h>

#include <cstdlib>
#include <ostream>

namespace {

using namespace krOpenSSL;
using krTest::FipsHome;
using Lines = std::vector<std::string>;

constexpr const char *kLoaded = "174 Loaded 'wolfEngine' successfully (Enabled FIPS mode)";
constexpr const char *kUnloaded = "199 Unloaded 'wolfEngine' successfully (Disabled FIPS mode)";

void removeDynamicEngine() {
  OPENSSL_init_crypto(OPENSSL_INIT_ENGINE_DYNAMIC, nullptr);
  ENGINE_remove(findListedEngine("dynamic").get());
}

struct Failure {
  const char *name;
  const char *failing;
  void (*prepare)();
  Lines lines;
  bool found; // wolfEngine is the active engine afterwards
};

void PrintTo(const Failure &failure, std::ostream *out) { *out << failure.name; }

void nothing() {}

// Whether anything of wolfEngine's methods has been replaced.
bool isSpliced(ENGINE *engine) {
  const RSA_METHOD *rsa = ENGINE_get_RSA(engine);
  const ENGINE_PKEY_METHS_PTR select = ENGINE_get_pkey_meths(engine);
  EVP_PKEY_METHOD *pkey = nullptr;
  int (*sign)(EVP_PKEY_CTX *, unsigned char *, std::size_t *, const unsigned char *, std::size_t) = nullptr;
  if (select != nullptr && select(engine, &pkey, nullptr, EVP_PKEY_RSA) > 0) {
    EVP_PKEY_meth_get_sign(pkey, nullptr, &sign);
  }
  return (rsa != nullptr && RSA_meth_get_priv_enc(rsa) == qvlib_RSA_private_encrypt) ||
         (pkey != nullptr && reinterpret_cast<const void *>(sign) != FipsHome::record().rsaSign);
}

class LoaderFailure : public testing::TestWithParam<Failure> {};

} // namespace

TEST_P(LoaderFailure, IsLoggedAndLeavesTheMethodsAlone) {
  FipsHome home(GetParam().failing);
  GetParam().prepare();
  EXPECT_EQ(krWolfEngineLoad(), 0);
  EXPECT_EQ(home.newLogLines(), GetParam().lines);
  ENGINE *engine = activeEngine.load();
  EXPECT_EQ(engine != nullptr, GetParam().found);
  if (engine != nullptr) {
    EXPECT_STREQ(ENGINE_get_id(engine), "wolfEngine");
    EXPECT_FALSE(isSpliced(engine));
  }
  const int finishes = engine != nullptr ? FipsHome::record().finishes.load() : 0;
  krWolfEngineUnload();
  EXPECT_EQ(activeEngine.load(), nullptr);
  EXPECT_EQ(ENGINE_get_default_RSA(), nullptr);
  if (engine != nullptr) {
    // A finish for each start that succeeded, and none for those that did not.
    const bool started = GetParam().failing == std::string("methods");
    EXPECT_EQ(FipsHome::record().finishes - finishes, started ? 1 : 0);
  }
  ERR_clear_error();
}

INSTANTIATE_TEST_SUITE_P(
    Steps, LoaderFailure,
    testing::Values(
        Failure{"Dynamic", "", removeDynamicEngine, {"94 Failed to load dynamic engine"}, false},
        Failure{"NoFile", "", [] { krTest::machine::loseModules(); }, {"117 Control command LOAD failed"}, false},
        Failure{"OtherId", "id", nothing, {"137 Failed to load 'wolfEngine'"}, false},
        Failure{
            "SetDefault", "default", nothing, {"143 Failed to set 'wolfEngine' as default for all algorithms"}, true},
        Failure{"Init", "init", nothing, {"149 Failed to initialize 'wolfEngine'"}, true},
        Failure{"Methods", "methods", nothing, {"157 Failed to find the methods of 'wolfEngine'"}, true}),
    [](const auto &row) { return row.param.name; });

TEST(Loader, ASecondLoadSkipsTheDynamicEngine) {
  FipsHome home;
  EXPECT_EQ(krWolfEngineLoad(), 1);
  EXPECT_TRUE(isSpliced(activeEngine.load()));
  EXPECT_EQ(home.newLogLines(), Lines{kLoaded});
  EXPECT_EQ(krWolfEngineUnload(), 1);
  EXPECT_EQ(home.newLogLines(), (Lines{"212 'Disabling' WolfEngine logging", kUnloaded}));
  removeDynamicEngine();
  EXPECT_EQ(krWolfEngineLoad(), 1);
  EXPECT_EQ(home.newLogLines(), (Lines{"82 WolfEngine already loaded", kLoaded}));
  EXPECT_EQ(krWolfEngineLoad(), 1); // not unloaded in between: still one reference to give back
  krWolfEngineUnload();
  EXPECT_EQ(FipsHome::record().initialisations, FipsHome::record().finishes);
}

TEST(Loader, TakesNoStrangerFromOpenSSLsModuleFolder) {
  FipsHome home("id");
  krTest::machine::setVariable("OPENSSL_ENGINES", KR_PROGRAM_FILES "/Corvane/TRVA");
  EXPECT_EQ(krWolfEngineLoad(), 0);
  krTest::machine::setVariable(krTest::kStandInFails, "");
  EXPECT_EQ(krWolfEngineLoad(), 0);
  EXPECT_EQ(home.newLogLines().back(), "137 Failed to load 'wolfEngine'");
  ERR_clear_error();
}

TEST(WolfEngineLogging, SendsTheFiveCommandsInTheMode) {
  FipsHome home;
  krOSSLSetup();
  EXPECT_EQ(krSetWolfEngineLogLevel(1), 0); // the engine in force knows no such command
  EXPECT_EQ(home.newLogLines(),
            (Lines{"212 'Disabling' WolfEngine logging", "216 Failed to disable logging for 'wolfEngine'"}));
  krFipsUseOpenSSLFIPS(1);
  krFipsModeOn();
  const Lines on{"enable_debug 1", "enable_debug_wolfssl 1", "log_level 1", "set_logging_cb 0 function",
                 "set_logging_cb_wolfssl 0 function"};
  const Lines off{"enable_debug 0", "enable_debug_wolfssl 0", "log_level 0", "set_logging_cb 0",
                  "set_logging_cb_wolfssl 0"};
  for (const auto &[level, sent] : {std::pair(0, on), std::pair(7, on), std::pair(-1, off), std::pair(-2, on)}) {
    FipsHome::record().commands.clear();
    EXPECT_EQ(krSetWolfEngineLogLevel(level), 1);
    EXPECT_EQ(FipsHome::record().commands, sent);
  }
  FipsHome::record().commands.clear();
  krFipsModeOff();
  EXPECT_EQ(FipsHome::record().commands, off);
  EXPECT_EQ(ERR_peek_error(), 0U);
}

TEST(WolfEngineLogging, StopsAtTheFirstCommandThatFails) {
  FipsHome home;
  ASSERT_EQ(krWolfEngineLoad(), 1);
  home.newLogLines();
  std::size_t sent = 0;
  for (const char *command :
       {"enable_debug", "enable_debug_wolfssl", "log_level", "set_logging_cb", "set_logging_cb_wolfssl"}) {
    krTest::machine::setVariable(krTest::kStandInFails, command);
    ++sent;
    for (const bool enable : {true, false}) {
      FipsHome::record().commands.clear();
      EXPECT_EQ(krWolfEngineSetLogging(enable, 4294967295U), 0);
      EXPECT_EQ(FipsHome::record().commands.size(), sent);
    }
  }
  std::string lines;
  for (const std::string &line : home.newLogLines()) {
    lines += (lines.empty() ? "" : "|") + line;
  }
  EXPECT_EQ(lines, krTest::readText("wolfengine_logging.txt"));
}
