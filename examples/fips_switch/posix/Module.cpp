// Modules, by the dynamic linker.
#include "Module.h"

#include <dlfcn.h>

#include <cstdlib>

std::filesystem::path fips_switch::wolfEngineFile() {
  const char *chosen = ::secure_getenv("KR_COMMON_PROGRAM_FILES");
  const std::filesystem::path folder = chosen == nullptr || *chosen == '\0' ? "/usr/lib" : chosen;
  return folder / "Corvane/TRVA/wolfEngine.so";
}

void *fips_switch::loadModule(const std::filesystem::path &file, std::string &refusal) {
  void *module = ::dlopen(file.c_str(), RTLD_NOW | RTLD_LOCAL);
  if (module == nullptr) {
    refusal = ::dlerror(); // NOLINT(concurrency-mt-unsafe): of this thread
  }
  return module;
}

void *fips_switch::moduleObject(void *module, const char *name) { return ::dlsym(module, name); }
