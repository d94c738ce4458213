// The DLL as a process loads and frees it, and modules as the library finds them. This program holds the library's
// core itself, so nothing else keeps the DLL loaded.
#include "platform/Platform.h"

#include <gtest/gtest.h>
#include <windows.h>

#include <array>
#include <filesystem>

using namespace krOpenSSL::platform;

namespace {

constexpr const char *kDll = "krOpenSSL64.dll";

template <class Function> Function *functionOf(HMODULE module, const char *name) {
  return reinterpret_cast<Function *>(reinterpret_cast<void *>(GetProcAddress(module, name)));
}

std::size_t committedBytes() {
  std::size_t bytes = 0;
  MEMORY_BASIC_INFORMATION block{};
  for (const char *at = nullptr; VirtualQuery(at, &block, sizeof block) != 0; at += block.RegionSize) {
    bytes += block.State == MEM_COMMIT && block.Type == MEM_PRIVATE ? block.RegionSize : 0;
  }
  return bytes;
}

bool isLoaded() { return GetModuleHandleA(kDll) != nullptr; }

} // namespace

TEST(Dll, ComesAndGoesUntilItIsSetUp) {
  std::size_t before = 0;
  for (int round = 0; round < 50; ++round) {
    before = round == 5 ? committedBytes() : before;
    HMODULE dll = LoadLibraryA(kDll);
    ASSERT_NE(dll, nullptr);
    unsigned char seed = 0;
    EXPECT_EQ(functionOf<int(unsigned char *, std::size_t)>(dll, "krPlatformGetSeed")(&seed, 1), 1);
    EXPECT_GE(functionOf<int()>(dll, "kropenssl_get_rsa_idx")(), 0);
    EXPECT_EQ(functionOf<int()>(dll, "krFipsMode")(), 0);
    FreeLibrary(dll);
    ASSERT_FALSE(isLoaded());
  }
  EXPECT_LT(committedBytes(), before + (1U << 20U));
  HMODULE dll = LoadLibraryA(kDll);
  EXPECT_EQ(functionOf<int()>(dll, "krOSSLSetup")(), 0);
  EXPECT_EQ(functionOf<int()>(dll, "krOSSLCleanup")(), 0);
  for (int round = 0; round < 5; ++round) {
    FreeLibrary(dll);
  }
  EXPECT_TRUE(isLoaded());
}

TEST(Dll, TellsItsVersion) {
  std::array<char, 4096> information;
  void *text = nullptr;
  UINT length = 0;
  ASSERT_NE(GetFileVersionInfoA(kDll, 0, information.size(), information.data()), 0);
  ASSERT_NE(VerQueryValueA(information.data(), R"(\StringFileInfo\040904b0\ProductVersion)", &text, &length), 0);
  EXPECT_STREQ(static_cast<const char *>(text), KR_VERSION);
}

TEST(Modules, TakeWhatTheyNeedFromTheirOwnFolderAlone) {
  const std::filesystem::path folder = std::filesystem::temp_directory_path() / "krAhead";
  const std::filesystem::path current = std::filesystem::current_path();
  std::filesystem::remove_all(folder);
  std::filesystem::create_directories(folder / "planted");
  const std::string module = (folder / "needsOther.dll").string();
  std::filesystem::copy_file(KR_NEEDS_OTHER, module);
  std::filesystem::copy_file(KR_OTHER, folder / "planted" / "other.dll");
  std::filesystem::current_path(folder / "planted");
  EXPECT_FALSE(ModuleAhead(module.c_str()));
  std::filesystem::copy_file(KR_OTHER, folder / "other.dll");
  EXPECT_TRUE(ModuleAhead(module.c_str()));
  EXPECT_EQ(GetModuleHandleA(module.c_str()), nullptr);
  std::filesystem::current_path(current);
}

TEST(Modules, AreThoseOfTheNameOrTheir64BitCompanion) {
  const std::filesystem::path folder = std::filesystem::temp_directory_path() / "krModules";
  std::filesystem::create_directories(folder);
  const std::string name = (folder / "standIn.dll").string();
  const std::string companion = (folder / "standIn-x64.dll").string();
  for (const std::string &copy : {name, companion}) {
    std::filesystem::copy_file(KR_STANDIN, copy, std::filesystem::copy_options::overwrite_existing);
  }
  EXPECT_EQ(loadedModule(name.c_str()), nullptr);
  HMODULE module = LoadLibraryA(name.c_str());
  EXPECT_EQ(loadedModule(name.c_str()), module);
  HMODULE other = LoadLibraryA(companion.c_str());
  EXPECT_EQ(loadedModule(name.c_str()), other);
  EXPECT_NE(moduleObject(other, "we_rsa_method"), nullptr);
  EXPECT_EQ(moduleObject(other, "we_none"), nullptr);
  FreeLibrary(other);
  freeModule(other); // the reference that the look-up took
  EXPECT_EQ(GetModuleHandleA(companion.c_str()), nullptr);
}
