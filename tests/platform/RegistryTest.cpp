// The machine's settings in a text file.
#include "log/TestLog.h"
#include "platform/Platform.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <array>

namespace {

constexpr const char *kKey = R"(SOFTWARE\Corvane\Logging)";
const std::string kSection = "[HKEY_LOCAL_MACHINE\\SOFTWARE\\Corvane\\Logging]\n";

std::string valueOf(const std::string &name = "Size", std::size_t size = 8) {
  std::array<char, 16> text{};
  return krOpenSSL::platform::registryText(kKey, name.c_str(), text.data(), size) ? text.data() : "none";
}

} // namespace

TEST(Registry, GivesTextsOfTheKey) {
  const krTest::TestLog log;
  const std::pair<std::string, std::string> rows[]{
      {"Windows Registry Editor Version 5.00\r\n\r\n" + kSection + "\"Size\"=\"10\"\r\n", "10"},
      {"\xef\xbb\xbf" + kSection + "\"Size\"=\"10\"", "10"},
      {"[hkey_local_machine\\Software\\corvane\\LOGGING]\n\"sIZE\"=\"10\"\n", "10"},
      {kSection + "  \"Size\"=\"1\\\"\\\\2\" \n", "1\"\\2"},
      {kSection + "\"Size\"=\"\"\n", ""},
      {kSection + "\"Size\"=\"1234567\"\n", "1234567"},
      {kSection + "\"Size\"=\"12345678\"\n", "none"}, // no room for the terminator
      {kSection + "\"Size\"=\"1\"\n\"Size\"=\"2\"\n", "2"},
      {kSection + "\"Size\"=\"1\"\n\"Size\"=-\n", "none"},
      {kSection + "\"Size\"=dword:0000000a\n", "none"},
      {kSection + "; \"Size\"=\"10\"\n", "none"},
      {kSection + "\"Size\"=\"10\\\"\n", "none"},
      {kSection + "\"Size\"\n\"\n=\n\"Size\"=\n", "none"},
      {kSection + "\"Sizes\"=\"10\"\n", "none"},
      {kSection + "[HKEY_LOCAL_MACHINE\\SOFTWARE\\Corvane]\n\"Size\"=\"10\"\n", "none"},
      {"\"Size\"=\"10\"\n[\n[]\n]", "none"},
      {kSection + "\"" + std::string(5000, 'x') + "\"=\"1\"\n\"Size\"=\"3\"\n", "3"},
      {kSection + std::string(4095, 'x') + "\"Size\"=\"3\"\n", "none"}, // one line, however it is read
      {kSection + std::string(4095, '\0') + "\"Size\"=\"3\"\n", "none"},
  };
  for (const auto &[content, value] : rows) {
    krTest::put(log.root / "registry", content);
    EXPECT_EQ(valueOf(), value) << content;
  }
}

TEST(Registry, IsEmptyWithoutAFile) {
  const krTest::TestLog log;
  for (const auto &make : {+[](const char *) {}, +[](const char *path) { ::mkdir(path, 0755); },
                           +[](const char *path) { ::mkfifo(path, 0644); }}) {
    std::filesystem::remove_all(log.root / "registry");
    make((log.root / "registry").c_str());
    EXPECT_EQ(valueOf(), "none");
  }
}
