// Variables and temporary folders stand for the machine.
#include "support/Machine.h"

#include <dlfcn.h>
#include <sys/stat.h>

#include <cstdlib>

namespace krTest::machine {

void setVariable(const char *name, const char *value) { ::setenv(name, value, 1); }

std::filesystem::path newProgramData() {
  std::string pattern = (std::filesystem::temp_directory_path() / "krOpenSSL-data-XXXXXX").string();
  std::filesystem::path folder = ::mkdtemp(pattern.data());
  (void)::chmod(folder.c_str(), 0755);
  std::filesystem::create_directories(folder / "Corvane/Logging");
  setVariable("KR_PROGRAM_DATA", folder.c_str());
  return folder;
}

void removeProgramData(const std::filesystem::path &folder) { std::filesystem::remove_all(folder); }

std::filesystem::path provideModules(const std::filesystem::path &built) {
  setVariable("KR_COMMON_PROGRAM_FILES", built.c_str());
  return built;
}

void loseModules() { setVariable("KR_COMMON_PROGRAM_FILES", "/nowhere"); }

const char *const kAnyLibrary = "libanl.so.1";

void *loadLibrary(const char *name) { return ::dlopen(name, RTLD_NOW); }

} // namespace krTest::machine
