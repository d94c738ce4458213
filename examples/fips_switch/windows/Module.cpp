// Modules, by Windows.
#include "Module.h"

#include <windows.h>

#include <cstdlib>
#include <system_error>

std::filesystem::path fips_switch::wolfEngineFile() {
  const char *folder = std::getenv("CommonProgramFiles(x86)"); // NOLINT(concurrency-mt-unsafe): one thread
  return std::filesystem::path(folder != nullptr ? folder : "") / "Corvane" / "TRVA" / "wolfEngine.dll";
}

void *fips_switch::loadModule(const std::filesystem::path &file, std::string &refusal) {
  void *module = ::LoadLibraryW(file.c_str());
  if (module == nullptr) {
    refusal = std::system_category().message(static_cast<int>(::GetLastError()));
  }
  return module;
}

void *fips_switch::moduleObject(void *module, const char *name) {
  return reinterpret_cast<void *>(::GetProcAddress(static_cast<HMODULE>(module), name));
}
