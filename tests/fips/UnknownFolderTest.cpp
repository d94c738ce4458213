// The wolfEngine loader where the system does not know the folder of wolfEngine.
#include "log/krCustomLogger.h"
#include "support/FakePlatform.h"

#include "fips/krWolfSSLFIPS.h"
#include "state/State.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <openssl/err.h>

namespace {

namespace fake = krTest::fakePlatform;

bool logged(const std::string &line) { return fake::written.find(line) != std::string::npos; }

} // namespace

TEST(WolfEnginePath, IsAskedForAgainUntilTheFolderIsKnown) {
  krLogThreshold = 4;
  fake::failing = {"commonProgramFilesFolder"};
  for (int attempt = 0; attempt < 2; ++attempt) {
    fake::written.clear();
    EXPECT_EQ(krWolfEngineLoad(), 0);
    EXPECT_TRUE(logged("krWolfSSLFIPS.cpp:65 - 'wolfEngine' Failed to get 'TRVA' directory path \n"));
    EXPECT_TRUE(logged("krWolfSSLFIPS.cpp:103 - 'wolfEngine' Control command SO_PATH failed \n"));
  }
  fake::failing.clear();
  EXPECT_EQ(std::filesystem::path(krWolfEngineGetPath()), "/nowhere/Corvane/TRVA/wolfEngine.so");
  fake::failing = {"commonProgramFilesFolder"};
  EXPECT_EQ(std::filesystem::path(krWolfEngineGetPath()), "/nowhere/Corvane/TRVA/wolfEngine.so");
  ERR_clear_error();
}
