// Folders that the machine knows by purpose.
#include "platform/Platform.h"
#include "platform/windows/Win32.h"

#include <initguid.h>
#include <knownfolders.h>
#include <objbase.h>
#include <shlobj.h>

namespace krOpenSSL::platform {
namespace {

// A folder whose name the calls that take narrow paths could not express counts as not known.
bool narrow(const wchar_t *wide, char *text, std::size_t size) noexcept {
  BOOL replaced = FALSE;
  return WideCharToMultiByte(CP_ACP, WC_NO_BEST_FIT_CHARS, wide, -1, text, static_cast<int>(size), nullptr,
                             &replaced) != 0 &&
         replaced == FALSE;
}

bool knownFolder(const KNOWNFOLDERID &id, char *path, std::size_t size) noexcept {
  wchar_t *folder = nullptr;
  const bool known = SHGetKnownFolderPath(id, 0, nullptr, &folder) == S_OK && narrow(folder, path, size);
  CoTaskMemFree(folder);
  return known;
}

} // namespace

bool programDataFolder(char *path, std::size_t size) noexcept { return knownFolder(FOLDERID_ProgramData, path, size); }

bool commonProgramFilesFolder(char *path, std::size_t size) noexcept {
  return knownFolder(FOLDERID_ProgramFilesCommonX86, path, size);
}

} // namespace krOpenSSL::platform
