// The folders are the machine's own, so tests that use them run one at a time.
#include "support/Machine.h"

#include <windows.h>

#include <cstdlib>

namespace krTest::machine {
namespace {

std::filesystem::path modules() { return std::filesystem::path(std::getenv("CommonProgramFiles(x86)")); }

} // namespace

void setVariable(const char *name, const char *value) { _putenv_s(name, value); }

std::filesystem::path newProgramData() {
  std::filesystem::path folder = std::getenv("ProgramData");
  std::filesystem::remove_all(folder / "Corvane");
  std::filesystem::create_directories(folder / "Corvane/Logging");
  return folder;
}

void removeProgramData(const std::filesystem::path &folder) { std::filesystem::remove_all(folder / "Corvane"); }

std::filesystem::path provideModules(const std::filesystem::path &built) {
  loseModules();
  std::filesystem::create_directories(modules());
  std::filesystem::copy(built, modules(), std::filesystem::copy_options::recursive);
  return modules();
}

void loseModules() { std::filesystem::remove_all(modules() / "Corvane"); }

const char *const kAnyLibrary = "msimg32.dll";

void *loadLibrary(const char *name) { return LoadLibraryA(name); }

} // namespace krTest::machine
