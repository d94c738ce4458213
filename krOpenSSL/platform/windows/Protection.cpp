// Owner and access of protected entries, and the privilege that it takes to become an owner.
#include "platform/Platform.h"
#include "platform/windows/Access.h"

namespace krOpenSSL::platform {
namespace {

void switchTakeOwnership(HANDLE token, DWORD attributes) noexcept {
  TOKEN_PRIVILEGES change{};
  change.PrivilegeCount = 1;
  change.Privileges[0].Attributes = attributes;
  if (LookupPrivilegeValueW(nullptr, L"SeTakeOwnershipPrivilege", &change.Privileges[0].Luid) != 0) {
    AdjustTokenPrivileges(token, FALSE, &change, 0, nullptr, nullptr);
  }
}

// Opens a folder, or a file that has no other name, and holds it in its place: through a link, or a second name,
// somebody else's entry would change hands.
Handle holdOwn(const char *path) noexcept {
  Handle entry = openExisting(path, GENERIC_READ, kShareInPlace, kEntryItself);
  Found found;
  const bool isOwn = entry && found.look(entry) && !found.isLink() && (found.isFolder() || found.isPlainFile());
  return isOwn ? std::move(entry) : Handle{};
}

bool set(const char *path, SECURITY_INFORMATION what, PSID owner, PACL list) noexcept {
  const Handle own = holdOwn(path);
  WidePath wide(path);
  return own && wide &&
         SetNamedSecurityInfoW(wide.get(), SE_FILE_OBJECT, what, owner, nullptr, list, nullptr) == ERROR_SUCCESS;
}

} // namespace

bool prepareProtection(Protection &protection) noexcept {
  const Sid system = Sid::localSystem();
  const Sid administrators = Sid::administrators();
  const Sid everyone = Sid::everyone();
  protection.accessList = makeAccessList({{system, TRUSTEE_IS_WELL_KNOWN_GROUP, GENERIC_ALL},
                                          {administrators, TRUSTEE_IS_GROUP, GENERIC_ALL},
                                          {everyone, TRUSTEE_IS_GROUP, GENERIC_READ}})
                              .release();
  if (protection.accessList == nullptr) {
    return false;
  }
  if (OpenProcessToken(GetCurrentProcess(), TOKEN_ADJUST_PRIVILEGES, &protection.token) == 0) {
    protection.token = nullptr;
    return true;
  }
  switchTakeOwnership(protection.token, SE_PRIVILEGE_ENABLED);
  return true;
}

void releaseProtection(Protection &protection) noexcept {
  if (protection.token != nullptr) {
    switchTakeOwnership(protection.token, 0);
  }
  LocalFree(protection.accessList);
  if (protection.token != nullptr) {
    CloseHandle(protection.token);
  }
}

bool giveToAdministrators(const char *path) noexcept {
  const Sid administrators = Sid::administrators();
  return administrators.get() != nullptr && set(path, OWNER_SECURITY_INFORMATION, administrators.get(), nullptr);
}

bool protect(const char *path, const Protection &protection) noexcept {
  return set(path, DACL_SECURITY_INFORMATION, nullptr, static_cast<PACL>(protection.accessList));
}

} // namespace krOpenSSL::platform
