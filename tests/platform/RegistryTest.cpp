// The machine's settings in a text file.
#include "platform/Platform.h"
#include "support/Home.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <array>

namespace {

const std::string kSection = "[HKEY_LOCAL_MACHINE\\SOFTWARE\\Corvane\\Logging]\n";

std::string value() {
  std::array<char, 8> text{};
  const bool found = krOpenSSL::platform::registryText(R"(SOFTWARE\Corvane\Logging)", "Size", text.data(), text.size());
  return found ? text.data() : "none";
}

} // namespace

TEST(Registry, GivesTextsOfTheKey) {
  const krTest::Home home;
  const struct {
    std::string content, value;
  } rows[]{
      {"Windows Registry Editor Version 5.00\r\n\r\n" + kSection + "\"Size\"=\"10\"\r\n", "10"},
      {"\xef\xbb\xbf" + kSection + "\"Size\"=\"10\"", "10"},
      {"[hkey_local_machine\\Software\\corvane\\LOGGING]\n\"sIZE\"=\"10\"\n", "10"},
      {kSection + "  \"Size\"=\"1\\\"\\\\2\" \n", "1\"\\2"},
      {kSection + "\"Size\"=\"\"\n", ""},
      {kSection + "\"Size\"=\"1234567\"\n", "1234567"},
      {kSection + "\"Size\"=\"12345678\"\n", "none"}, // no room for the terminator
      {kSection + "\"Size\"=\"10\"0\n", "none"},
      {kSection + "\"Size\"=\"1\"\n\"Size\"=\"2\"\n", "2"},
      {kSection + "\"Size\"=\"1\"\n\"Size\"=-\n", "none"},
      {kSection + "\"Size\"=dword:0000000a\n", "none"},
      {kSection + "; \"Size\"=\"10\"\n", "none"},
      {kSection + "\"Size\"=\"10\\\"\n", "none"},
      {kSection + "\"Size\"\n\"\n=\n\"Size\"=\n", "none"},
      {kSection + "\"Size\"\"10\"\n", "none"},
      {kSection + "\"Sizes\"=\"10\"\n", "none"},
      {kSection + "[HKEY_LOCAL_MACHINE\\SOFTWARE\\Corvane]\n\"Size\"=\"10\"\n", "none"},
      {"\"Size\"=\"10\"\n[\n[]\n]", "none"},
      {kSection + "\"" + std::string(5000, 'x') + "\"=\"1\"\n\"Size\"=\"3\"\n", "3"},
      {kSection + std::string(4095, 'x') + "\"Size\"=\"3\"\n", "none"}, // one line, however it is read
      {kSection + std::string(4095, '\0') + "\"Size\"=\"3\"\n", "none"},
      {kSection + "\"Size\"=\"3\"" + std::string(4095, ' ') + "\n", "none"}, // too long, though only by blanks
  };
  for (const auto &row : rows) {
    krTest::put(home.settings, row.content);
    EXPECT_EQ(value(), row.value) << row.content;
  }
  for (const auto &make : {+[](const char *) { return 0; }, +[](const char *path) { return ::mkdir(path, 0755); },
                           +[](const char *path) { return ::mkfifo(path, 0644); }}) {
    std::filesystem::remove(home.settings);
    EXPECT_EQ(make(home.settings.c_str()), 0);
    EXPECT_EQ(value(), "none");
  }
}
