#include "support/FipsHome.h"

#include "state/State.h"

#include <dlfcn.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <regex>

namespace krTest {

FipsHome::FipsHome(const std::string &failing) {
  std::string pattern = (std::filesystem::temp_directory_path() / "krOpenSSL-fips-XXXXXX").string();
  folder_ = mkdtemp(pattern.data());
  std::filesystem::create_directories(folder_ / "Corvane/Logging");
  setenv("KR_PROGRAM_DATA", folder_.c_str(), 1);
  setenv("KR_COMMON_PROGRAM_FILES", KR_PROGRAM_FILES, 1);
  setenv(kStandInFails, failing.c_str(), 1);
  krOpenSSL::state::krLogThreshold = 4;
}

FipsHome::~FipsHome() { std::filesystem::remove_all(folder_); }

std::vector<std::string> FipsHome::newLogLines() {
  static const std::regex loader(R"(4, c=0 .* krWolfSSLFIPS\.cpp:(\d+) - 'wolfEngine' (.*) )");
  static const std::regex wolfEngine(R"((\d+), c=(\d+) .* krCustomLogger\.cpp:363 - '' (.*) )");
  std::vector<std::string> lines;
  std::ifstream log(folder_ / "Corvane/Logging/krOpenSSL.log");
  std::size_t count = 0;
  for (std::string line; std::getline(log, line);) {
    if (++count <= seen_) {
      continue;
    }
    std::smatch match;
    if (std::regex_match(line, match, loader)) {
      lines.push_back(match[1].str() + " " + match[2].str());
    } else if (std::regex_match(line, match, wolfEngine)) {
      lines.push_back(match[1].str() + " " + match[2].str() + " " + match[3].str());
    } else {
      lines.push_back("not understood: " + line);
    }
  }
  seen_ = count;
  return lines;
}

WolfEngineRecord &FipsHome::record() {
  void *module = dlopen(KR_PROGRAM_FILES "/Corvane/TRVA/wolfEngine.so", RTLD_LAZY | RTLD_NOLOAD);
  void *record = module != nullptr ? dlsym(module, "standInRecord") : nullptr;
  if (record == nullptr) {
    ADD_FAILURE() << "the stand-in is not loaded";
    std::abort();
  }
  dlclose(module);
  return *static_cast<WolfEngineRecord *>(record);
}

} // namespace krTest
