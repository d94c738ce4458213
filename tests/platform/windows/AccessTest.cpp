// Owners, access lists and the privilege, read back from the system.
#include "platform/windows/Access.h"
#include "platform/windows/LogHome.h"

#include <aclapi.h>
#include <gtest/gtest.h>
#include <sddl.h>

using namespace krOpenSSL::platform;

namespace krTest {
namespace {

std::string textOf(PSID sid) {
  char *text = nullptr;
  ConvertSidToStringSidA(sid, &text);
  std::string copy = text;
  LocalFree(text);
  return copy;
}

std::string rightsOf(ACCESS_MASK mask) {
  GENERIC_MAPPING files{FILE_GENERIC_READ, FILE_GENERIC_WRITE, FILE_GENERIC_EXECUTE, FILE_ALL_ACCESS};
  std::ostringstream text;
  MapGenericMask(&mask, &files);
  text << std::hex << mask;
  return mask == FILE_ALL_ACCESS ? "all" : mask == FILE_GENERIC_READ ? "read" : text.str();
}

// Each entry with its SID and rights, without those that the folder above has given.
std::string textOf(PACL list) {
  std::string text;
  for (DWORD i = 0; list != nullptr && i < list->AceCount; ++i) {
    ACCESS_ALLOWED_ACE *entry = nullptr;
    GetAce(list, i, reinterpret_cast<void **>(&entry));
    const bool isPlain = entry->Header.AceType == ACCESS_ALLOWED_ACE_TYPE && entry->Header.AceFlags == 0;
    if ((entry->Header.AceFlags & INHERITED_ACE) == 0) {
      text += (isPlain ? ", allow " : ", other ") + textOf(static_cast<PSID>(&entry->SidStart)) + " " +
              rightsOf(entry->Mask);
    }
  }
  return text;
}

std::string accessOf(const std::string &path) {
  std::string name = path;
  PSID owner = nullptr;
  PACL list = nullptr;
  PSECURITY_DESCRIPTOR descriptor = nullptr;
  GetNamedSecurityInfoA(name.data(), SE_FILE_OBJECT, OWNER_SECURITY_INFORMATION | DACL_SECURITY_INFORMATION, &owner,
                        nullptr, &list, nullptr, &descriptor);
  std::string text = owner != nullptr ? textOf(owner) + textOf(list) : "unknown";
  LocalFree(descriptor);
  return text;
}

} // namespace

bool keepsAccessLists() {
  static const bool keeps = [] {
    const std::string probe = (std::filesystem::temp_directory_path() / "krAccess").string();
    std::string name = probe;
    put(probe, "");
    const auto list = makeAccessList({{Sid::localSystem(), TRUSTEE_IS_GROUP, GENERIC_ALL}});
    SetNamedSecurityInfoA(name.data(), SE_FILE_OBJECT, DACL_SECURITY_INFORMATION, nullptr, nullptr, list.get(),
                          nullptr);
    const std::string access = accessOf(probe);
    std::filesystem::remove(probe);
    return access.substr(access.find(',')) == ", allow S-1-5-18 all";
  }();
  return keeps;
}

bool hasAccess(const std::string &path, const std::string &access) {
  return !keepsAccessLists() || accessOf(path).ends_with(access);
}

} // namespace krTest

using namespace krTest;

namespace {

// Whether the privilege is held, and whether it is on.
std::pair<bool, bool> takeOwnership() {
  HANDLE token = nullptr;
  std::array<char, 4096> buffer;
  DWORD length = 0;
  LUID wanted{};
  OpenProcessToken(GetCurrentProcess(), TOKEN_QUERY, &token);
  LookupPrivilegeValueA(nullptr, "SeTakeOwnershipPrivilege", &wanted);
  GetTokenInformation(token, TokenPrivileges, buffer.data(), buffer.size(), &length);
  CloseHandle(token);
  const auto *all = reinterpret_cast<const TOKEN_PRIVILEGES *>(buffer.data());
  for (DWORD i = 0; i < all->PrivilegeCount; ++i) {
    if (all->Privileges[i].Luid.LowPart == wanted.LowPart) {
      return {true, (all->Privileges[i].Attributes & SE_PRIVILEGE_ENABLED) != 0};
    }
  }
  return {false, false};
}

} // namespace

TEST(AccessLists, HaveTheirEntriesInOrder) {
  Protection protection;
  ASSERT_TRUE(prepareProtection(protection));
  EXPECT_EQ(std::string("S-1-5-32-544") + textOf(static_cast<PACL>(protection.accessList)), kProtected);
  releaseProtection(protection);
  EXPECT_EQ(textOf(makeAccessList({{Sid::everyone(), TRUSTEE_IS_GROUP, GENERIC_ALL}}).get()), kForEveryone);
}

TEST(AccessLists, AreReadBackFromTheEntries) {
  if (!keepsAccessLists()) {
    GTEST_SKIP() << "this system keeps no access lists with its files";
  }
  const LogHome home;
  put(home.file, "");
  Protection protection;
  ASSERT_TRUE(prepareProtection(protection));
  for (const std::string &entry : {home.file, home.folder.string()}) {
    EXPECT_TRUE(giveToAdministrators(entry.c_str()));
    EXPECT_TRUE(protect(entry.c_str(), protection));
    EXPECT_EQ(accessOf(entry), kProtected);
  }
  EXPECT_TRUE(startFileForEveryone(home.file.c_str()));
  EXPECT_TRUE(accessOf(home.file).ends_with(kForEveryone));
  releaseProtection(protection);
}

TEST(Protection, LeavesAFileOfTwoNamesAlone) {
  const LogHome home;
  put(home.other, "");
  const std::string before = accessOf(home.other);
  std::filesystem::create_hard_link(home.other, home.file);
  Protection protection;
  ASSERT_TRUE(prepareProtection(protection));
  EXPECT_FALSE(giveToAdministrators(home.file.c_str()));
  EXPECT_FALSE(protect(home.file.c_str(), protection));
  EXPECT_FALSE(protect(home.old.c_str(), protection)); // nothing is there
  EXPECT_EQ(accessOf(home.other), before);
  releaseProtection(protection);
}

TEST(Protection, HasThePrivilegeOnForItsLife) {
  ASSERT_TRUE(takeOwnership().first) << "the test has to run as an administrator";
  for (int round = 0; round < 2; ++round) {
    Protection protection;
    ASSERT_TRUE(prepareProtection(protection));
    EXPECT_TRUE(takeOwnership().second);
    releaseProtection(protection);
    EXPECT_FALSE(takeOwnership().second);
  }
}

TEST(FreshFile, IsEmptyUnlessSomebodyHoldsTheOldOne) {
  const LogHome home;
  for (const bool stood : {false, true}) {
    if (stood) {
      put(home.file, "old");
    }
    EXPECT_TRUE(startFileForEveryone(home.file.c_str()));
    EXPECT_EQ(contentOf(home.file), "");
  }
  std::ifstream open(home.file); // C++ streams share everything but removal
  EXPECT_FALSE(startFileForEveryone(home.file.c_str()));
  EXPECT_FALSE(startFileForEveryone((home.folder / "none" / "log").string().c_str()));
}
