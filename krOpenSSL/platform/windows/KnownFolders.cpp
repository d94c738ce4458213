// Folders that the machine knows by purpose.
#include "platform/Platform.h"
#include "platform/windows/Win32.h"

#include <initguid.h>
#include <knownfolders.h>
#include <objbase.h>
#include <shlobj.h>

namespace krOpenSSL::platform {
namespace {

// A folder whose name the calls that take narrow paths could not express counts as not known. UTF-8 expresses all but
// broken surrogates, and takes neither the flag nor the question that find out for other code pages.
bool narrow(const wchar_t *wide, char *text, std::size_t size) noexcept {
  const bool isUtf8 = GetACP() == CP_UTF8;
  BOOL replaced = FALSE;
  return WideCharToMultiByte(isUtf8 ? CP_UTF8 : CP_ACP, isUtf8 ? WC_ERR_INVALID_CHARS : WC_NO_BEST_FIT_CHARS, wide, -1,
                             text, static_cast<int>(size), nullptr, isUtf8 ? nullptr : &replaced) != 0 &&
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
