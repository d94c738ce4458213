// The machine's settings: a text file in the syntax of registry exports, encoded in UTF-8.
#include "platform/Platform.h"
#include "platform/posix/Place.h"

#include <strings.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string_view>

namespace krOpenSSL::platform {
namespace {

constexpr std::string_view kRoot = R"(HKEY_LOCAL_MACHINE\)";
constexpr std::string_view kBlanks = " \t\r\n";
constexpr std::string_view kByteOrderMark = "\xef\xbb\xbf";
constexpr std::size_t kLineBytes = 4096;

struct CloseFile {
  void operator()(std::FILE *file) const noexcept { (void)std::fclose(file); }
};
using File = std::unique_ptr<std::FILE, CloseFile>;

File openRegistry() noexcept {
  const char *chosen = ::secure_getenv("KR_REGISTRY_FILE");
  const char *path = chosen == nullptr || *chosen == '\0' ? "/etc/krOpenSSL.reg" : chosen;
  Descriptor opened(::open(path, O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
  struct stat found {};
  if (!opened || ::fstat(opened.get(), &found) != 0 || !S_ISREG(found.st_mode)) {
    return nullptr;
  }
  File file(::fdopen(opened.get(), "r"));
  if (file) {
    (void)opened.release();
  }
  return file;
}

// The next line, without the blanks around it; false at the end. Of a line that is too long nothing is kept.
bool nextLine(std::FILE *file, std::array<char, kLineBytes> &buffer, std::string_view &line) noexcept {
  // Only a line that fills the buffer puts something else here, whatever NULs it has.
  char &last = buffer[buffer.size() - 2];
  last = '\n';
  if (std::fgets(buffer.data(), static_cast<int>(buffer.size()), file) == nullptr) {
    return false;
  }
  line = buffer.data();
  if (last != '\n') {
    for (int next = std::fgetc(file); next != EOF && next != '\n';) {
      next = std::fgetc(file);
    }
    line = {};
  }
  line.remove_prefix(std::min(line.find_first_not_of(kBlanks), line.size()));
  line.remove_suffix(line.size() - (line.find_last_not_of(kBlanks) + 1));
  return true;
}

bool isSameName(std::string_view one, std::string_view other) noexcept {
  return one.size() == other.size() && ::strncasecmp(one.data(), other.data(), one.size()) == 0;
}

// Whether a line "[root\key]" opens the key.
bool opensKey(std::string_view line, std::string_view key) noexcept {
  if (!line.ends_with(']')) {
    return false;
  }
  line = line.substr(1, line.size() - 2);
  return isSameName(line.substr(0, kRoot.size()), kRoot) && isSameName(line.substr(kRoot.size()), key);
}

// Takes a quoted text off the line's front into the buffer, terminated; none when it is none or too long.
std::optional<std::string_view> takeQuoted(std::string_view &line, char *text, std::size_t size) noexcept {
  if (!line.starts_with('"')) {
    return std::nullopt;
  }
  std::size_t length = 0;
  for (std::size_t i = 1; i < line.size() && length < size; ++i) {
    if (line[i] == '"') {
      text[length] = '\0';
      line.remove_prefix(i + 1);
      return std::string_view(text, length);
    }
    if (line[i] == '\\' && i + 1 < line.size()) {
      ++i;
    }
    text[length++] = line[i];
  }
  return std::nullopt;
}

} // namespace

// As when the file is merged into a registry, the last of several values of one name holds.
bool registryText(const char *key, const char *name, char *text, std::size_t size) noexcept {
  const File file = openRegistry();
  std::array<char, kLineBytes> buffer;
  std::array<char, kLineBytes> valueName;
  std::string_view line;
  bool inKey = false;
  bool found = false;
  for (bool first = true; file && nextLine(file.get(), buffer, line); first = false) {
    if (first && line.starts_with(kByteOrderMark)) {
      line.remove_prefix(kByteOrderMark.size());
    }
    if (line.starts_with('[')) {
      inKey = opensKey(line, key);
      continue;
    }
    const auto which = inKey ? takeQuoted(line, valueName.data(), valueName.size()) : std::nullopt;
    if (which && isSameName(*which, name) && line.starts_with('=')) {
      line.remove_prefix(1);
      found = takeQuoted(line, text, size).has_value() && line.empty();
    }
  }
  return found;
}

} // namespace krOpenSSL::platform
