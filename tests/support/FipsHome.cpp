// Where wolfEngine's stand-in is put, what it recorded, and the log's lines of it and of its loader.
#include "support/FipsHome.h"

#include "log/krCustomLogger.h"
#include "platform/Platform.h"

#include <gtest/gtest.h>

#include <cstdlib>

namespace krTest {

FipsHome::FipsHome(const std::string &failing) {
  modules = machine::provideModules(KR_PROGRAM_FILES);
  machine::setVariable(kStandInFails, failing.c_str());
  krLogThreshold = 4;
}

std::vector<std::string> FipsHome::newLogLines() {
  const std::vector<std::string> all = linesOf(file);
  std::vector<std::string> lines;
  for (; seen_ < all.size(); ++seen_) {
    const std::string &line = all[seen_];
    const std::string name = " - 'wolfEngine' ";
    const std::size_t from = line.find("krWolfSSLFIPS.cpp:") + 18;
    const std::size_t message = line.find(name);
    const std::size_t literal = line.find("krCustomLogger.cpp:363 - '' ");
    const std::string text = literal != std::string::npos
                                 ? line.substr(0, 1) + " " + line.substr(5, 1) + " " + line.substr(literal + 28)
                                 : line.substr(from, message - from) + " " + line.substr(message + name.size());
    lines.push_back(text.substr(0, text.find_last_not_of(" \r") + 1));
  }
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
