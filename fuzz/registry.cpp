// The machine's settings: any content of the settings file against the syntax of registry exports, and the limit that
// the text stands for.
#include "Fuzz.h"

#include "log/LogLimit.h"
#include "platform/Platform.h"

#include <strings.h>
#include <sys/mman.h>
#include <unistd.h>

#include <optional>
#include <sstream>
#include <string>

namespace {

using namespace krFuzz;

using Value = std::optional<std::string>;

bool isSame(const std::string &one, const char *other) { return ::strcasecmp(one.c_str(), other) == 0; }

/// Takes a quoted text off the line's front.
Value takeQuoted(std::string &line) {
  std::string text;
  for (std::size_t i = 1; i < line.size() && line[0] == '"'; ++i) {
    if (line[i] == '"') {
      line.erase(0, i + 1);
      return text;
    }
    i += line[i] == '\\' && i + 1 < line.size() ? 1 : 0;
    text += line[i];
  }
  return std::nullopt;
}

/// What the file says, in whatever length.
Value valueIn(const std::string &content) {
  constexpr std::size_t kLongestLine = 4094;
  constexpr const char *kBlanks = " \t\r";
  std::istringstream lines(content);
  Value value;
  bool isInKey = false;
  bool isFirst = true;
  for (std::string line; std::getline(lines, line); isFirst = false) {
    line = line.size() > kLongestLine ? "" : line.c_str(); // up to its first NUL
    line.erase(0, line.find_first_not_of(kBlanks));
    line.erase(line.find_last_not_of(kBlanks) + 1);
    line.erase(0, isFirst && line.rfind("\xef\xbb\xbf", 0) == 0 ? 3 : 0);
    if (line[0] == '[') {
      isInKey = isSame(line, R"([HKEY_LOCAL_MACHINE\SOFTWARE\Corvane\Logging])");
    } else if (const Value name = takeQuoted(line); isInKey && name && isSame(*name, "LogSizeInMB") && line[0] == '=') {
      line.erase(0, 1);
      value = takeQuoted(line);
      value = line.empty() ? value : std::nullopt;
    }
  }
  return value;
}

/// The settings file, in memory.
int openFile() {
  const int file = ::memfd_create("settings", 0);
  ::setenv("KR_REGISTRY_FILE", ("/proc/self/fd/" + std::to_string(file)).c_str(), 1);
  return file;
}

} // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
  static const int file = openFile();
  const std::string content(data, data + size);
  const bool put = ::ftruncate(file, 0) == 0 && ::pwrite(file, data, size, 0) == static_cast<ssize_t>(size);
  require(put, "the file can be written");
  const Value value = valueIn(content);
  const std::size_t room = size % 7 == 0 ? size % 5 + 1 : 260;

  std::vector<char> text(room, 'x');
  const bool found =
      krOpenSSL::platform::registryText(R"(SOFTWARE\Corvane\Logging)", "LogSizeInMB", text.data(), text.size());
  require(found == (value && value->size() < room), "a text is given whole or not at all");
  require(!found || *value == text.data(), "the text is the file's");

  const std::string limit = value ? *value : content;
  const long number = std::strtol(limit.c_str(), nullptr, 10); // saturates
  const auto expected = static_cast<std::uint32_t>(std::min(number, 4094L)) << 20U;
  require(krOpenSSL::logLimitFrom(limit.c_str()) == (number < 1 ? krOpenSSL::kDefaultLogLimitBytes : expected),
          "the limit is the text's number");
  return 0;
}
