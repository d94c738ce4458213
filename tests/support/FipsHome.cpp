#include "support/FipsHome.h"

#include "platform/Platform.h"
#include "state/State.h"
#include "support/Machine.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <regex>

namespace krTest {

FipsHome::FipsHome(const std::string &failing) : folder_(machine::newProgramData()) {
  modules = machine::provideModules(KR_PROGRAM_FILES);
  machine::setVariable(kStandInFails, failing.c_str());
  krOpenSSL::state::krLogThreshold = 4;
}

FipsHome::~FipsHome() { machine::removeProgramData(folder_); }

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
  using namespace krOpenSSL::platform;
  const std::filesystem::path file = modules / "Corvane" / "TRVA" / (std::string("wolfEngine") + kModuleSuffix);
  void *module = loadedModule(file.string().c_str());
  void *record = module != nullptr ? moduleObject(module, "standInRecord") : nullptr;
  if (record == nullptr) {
    ADD_FAILURE() << "the stand-in is not loaded";
    std::abort();
  }
  freeModule(module);
  return *static_cast<WolfEngineRecord *>(record);
}

} // namespace krTest
