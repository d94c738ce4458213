// The machine's settings and folders.
#include "platform/Platform.h"

#include <gtest/gtest.h>
#include <windows.h>

#include <array>
#include <cstdlib>
#include <string>

using namespace krOpenSSL;

namespace {

constexpr const char *kKey = R"(SOFTWARE\Corvane\Logging)";
constexpr const char *kName = "LogSizeInMB";

// The key in one view of the registry, for the test's life.
class Key {
public:
  explicit Key(REGSAM view) : view_(view) {
    RegCreateKeyExA(HKEY_LOCAL_MACHINE, kKey, 0, nullptr, 0, KEY_ALL_ACCESS | view, nullptr, &key_, nullptr);
  }
  ~Key() {
    RegCloseKey(key_);
    RegDeleteKeyExA(HKEY_LOCAL_MACHINE, kKey, view_, 0);
  }
  Key(const Key &) = delete;
  Key &operator=(const Key &) = delete;

  void set(DWORD type, const std::string &bytes) {
    RegSetValueExA(key_, kName, 0, type, reinterpret_cast<const BYTE *>(bytes.data()),
                   static_cast<DWORD>(bytes.size()));
  }

private:
  REGSAM view_;
  HKEY key_ = nullptr;
};

std::string text() {
  std::array<char, 260> buffer;
  return platform::registryText(kKey, kName, buffer.data(), buffer.size()) ? buffer.data() : "none";
}

// A process whose code page is UTF-8, where the call refuses what Wine's own accepts.
bool isUtf8 = false;

UINT WINAPI codePage() { return isUtf8 ? CP_UTF8 : 1252; }

int WINAPI narrow(UINT page, DWORD flags, const wchar_t *wide, int length, char *text, int size, const char *standIn,
                  BOOL *used) {
  using Function = decltype(WideCharToMultiByte);
  static auto *const function = reinterpret_cast<Function *>(
      reinterpret_cast<void *>(GetProcAddress(GetModuleHandleA("kernel32"), "WideCharToMultiByte")));
  if (isUtf8 && ((flags | WC_ERR_INVALID_CHARS) != WC_ERR_INVALID_CHARS || standIn != nullptr || used != nullptr)) {
    return 0;
  }
  return function(page, flags, wide, length, text, size, standIn, used);
}

const std::string kTen("10", sizeof "10"); // with the terminator

} // namespace

// The linker takes these for the system's.
extern "C" {
auto *__imp_GetACP = codePage;            // NOLINT(bugprone-reserved-identifier,readability-identifier-naming)
auto *__imp_WideCharToMultiByte = narrow; // NOLINT(bugprone-reserved-identifier,readability-identifier-naming)
}

TEST(Registry, GivesTextsOfThe32BitViewOnly) {
  EXPECT_EQ(text(), "none");
  Key other(KEY_WOW64_64KEY);
  other.set(REG_SZ, "64");
  EXPECT_EQ(text(), "none");
  Key key(KEY_WOW64_32KEY);
  EXPECT_EQ(text(), "none");
  const struct {
    DWORD type;
    std::string bytes, text;
  } rows[]{
      {REG_SZ, kTen, "10"},
      {REG_SZ, "12x", "12x"}, // without a terminator
      {REG_SZ, "", ""},
      {REG_SZ, std::string(258, '7') + '\0', std::string(258, '7')},
      {REG_SZ, std::string(300, '7'), "none"},
      {REG_DWORD, std::string("\x0a\0\0\0", 4), "none"},
      {REG_EXPAND_SZ, kTen, "none"},
  };
  for (const auto &row : rows) {
    key.set(row.type, row.bytes);
    EXPECT_EQ(text(), row.text) << row.bytes;
  }
}

TEST(KnownFolders, AreThoseOfTheMachine) {
  std::array<char, 1024> path;
  for (const bool utf8 : {true, false}) {
    isUtf8 = utf8;
    ASSERT_TRUE(platform::programDataFolder(path.data(), path.size())) << utf8;
  }
  ASSERT_TRUE(platform::programDataFolder(path.data(), path.size()));
  EXPECT_STREQ(path.data(), std::getenv("ProgramData"));
  ASSERT_TRUE(platform::commonProgramFilesFolder(path.data(), path.size()));
  EXPECT_STREQ(path.data(), std::getenv("CommonProgramFiles(x86)"));
  EXPECT_FALSE(platform::programDataFolder(path.data(), 4));
}
