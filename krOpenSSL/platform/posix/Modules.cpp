// Loaded modules, by the dynamic linker.
#include "platform/Platform.h"

#include <dlfcn.h>

namespace krOpenSSL::platform {

const char *const kModuleSuffix = ".so";

ModuleAhead::ModuleAhead(const char * /*path*/) noexcept {}
ModuleAhead::~ModuleAhead() = default;
ModuleAhead::operator bool() const noexcept { return true; }

void *loadedModule(const char *path) noexcept { return dlopen(path, RTLD_LAZY | RTLD_NOLOAD); }

void *moduleObject(void *module, const char *name) noexcept { return dlsym(module, name); }

void freeModule(void *module) noexcept { dlclose(module); }

bool stayLoaded() noexcept { return true; } // it is linked so

} // namespace krOpenSSL::platform
