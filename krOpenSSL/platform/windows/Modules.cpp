// Loaded modules, this library among them.
#include "platform/Platform.h"
#include "platform/windows/Win32.h"

#include <string_view>

namespace krOpenSSL::platform {
namespace {

HMODULE loaded(const char *name) noexcept {
  HMODULE module = nullptr;
  return GetModuleHandleExA(0, name, &module) != 0 ? module : nullptr;
}

// The module that carries a 64-bit module's data objects: "NAME.dll" has them in "NAME-x64.dll".
HMODULE loadedCompanion(std::string_view path) noexcept {
  constexpr std::string_view kEnding = "-x64.dll";
  const std::string_view file = path.substr(path.find_last_of("\\/") + 1);
  const std::string_view stem = file.substr(0, file.rfind('.'));
  std::array<char, MAX_PATH> name;
  if (stem.size() + kEnding.size() >= name.size()) {
    return nullptr;
  }
  name[stem.copy(name.data(), stem.size()) + kEnding.copy(name.data() + stem.size(), kEnding.size())] = '\0';
  return loaded(name.data());
}

} // namespace

const char *const kModuleSuffix = ".dll";

ModuleAhead::ModuleAhead(const char *path) noexcept
    : module_(LoadLibraryExA(path, nullptr, LOAD_LIBRARY_SEARCH_DLL_LOAD_DIR | LOAD_LIBRARY_SEARCH_SYSTEM32)) {}

ModuleAhead::~ModuleAhead() {
  if (module_ != nullptr) {
    freeModule(module_);
  }
}

ModuleAhead::operator bool() const noexcept { return module_ != nullptr; }

void *loadedModule(const char *path) noexcept {
  HMODULE companion = loadedCompanion(path);
  return companion != nullptr ? companion : loaded(path);
}

void *moduleObject(void *module, const char *name) noexcept {
  return reinterpret_cast<void *>(GetProcAddress(static_cast<HMODULE>(module), name));
}

void freeModule(void *module) noexcept { FreeLibrary(static_cast<HMODULE>(module)); }

bool stayLoaded() noexcept {
  HMODULE self = nullptr;
  return GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_PIN,
                            reinterpret_cast<const wchar_t *>(&stayLoaded), &self) != 0;
}

} // namespace krOpenSSL::platform
