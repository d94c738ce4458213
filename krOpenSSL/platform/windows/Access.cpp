// Making access lists.
#include "platform/windows/Access.h"

namespace krOpenSSL::platform {

AccessList makeAccessList(std::initializer_list<AccessEntry> entries) noexcept {
  std::array<EXPLICIT_ACCESSW, 3> all{};
  ULONG count = 0;
  for (const AccessEntry &entry : entries) {
    if (entry.who.get() == nullptr || count == all.size()) {
      return nullptr;
    }
    EXPLICIT_ACCESSW &access = all[count++];
    access.grfAccessPermissions = entry.rights;
    access.grfAccessMode = SET_ACCESS;
    access.grfInheritance = NO_INHERITANCE;
    access.Trustee.TrusteeForm = TRUSTEE_IS_SID;
    access.Trustee.TrusteeType = entry.type;
    access.Trustee.ptstrName = static_cast<wchar_t *>(entry.who.get());
  }
  ACL *list = nullptr;
  return AccessList(SetEntriesInAclW(count, all.data(), nullptr, &list) == ERROR_SUCCESS ? list : nullptr);
}

ForEveryone::ForEveryone(DWORD rights) noexcept
    : list_(makeAccessList({{Sid::everyone(), TRUSTEE_IS_GROUP, rights}})),
      made_(list_ && InitializeSecurityDescriptor(&descriptor_, SECURITY_DESCRIPTOR_REVISION) != 0 &&
            SetSecurityDescriptorDacl(&descriptor_, TRUE, list_.get(), FALSE) != 0) {}

} // namespace krOpenSSL::platform
