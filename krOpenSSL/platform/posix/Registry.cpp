// The machine's settings: a text file in the syntax of registry exports, encoded in UTF-8.
#include "platform/Platform.h"
#include "platform/posix/Place.h"

#include <strings.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <string_view>
#include <utility>

namespace krOpenSSL::platform {
namespace {

constexpr std::string_view kRoot = R"(HKEY_LOCAL_MACHINE\)";
constexpr std::string_view kBlanks = " \t\r\n";
constexpr std::string_view kByteOrderMark = "\xef\xbb\xbf";
constexpr std::size_t kLineBytes = 4094;

Descriptor openRegistry() noexcept {
  const char *chosen = ::secure_getenv("KR_REGISTRY_FILE");
  const char *path = chosen == nullptr || *chosen == '\0' ? "/etc/krOpenSSL.reg" : chosen;
  Descriptor opened(::open(path, O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
  struct stat found {};
  return opened && ::fstat(opened.get(), &found) == 0 && S_ISREG(found.st_mode) ? std::move(opened) : Descriptor{};
}

// The lines of a file. Not by the C library's streams, which take locks and memory: the log reads its limit in the
// middle of a line, where a fork may leave both in the hands of a thread that is not there.
class Lines {
public:
  explicit Lines(int file) noexcept : file_(file) {}

  /// The next line up to its first NUL, without the blanks around it; false at the end. Of a line that is too long
  /// nothing is kept.
  bool next(std::string_view &line) noexcept {
    std::size_t length = 0;
    int byte = nextByte();
    if (byte == kEnd) {
      return false;
    }
    for (; byte != kEnd && byte != '\n'; byte = nextByte(), ++length) {
      if (length < line_.size()) {
        line_[length] = static_cast<char>(byte);
      }
    }
    line = {line_.data(), length <= line_.size() ? length : 0};
    line = line.substr(0, line.find('\0'));
    line.remove_prefix(std::min(line.find_first_not_of(kBlanks), line.size()));
    line.remove_suffix(line.size() - (line.find_last_not_of(kBlanks) + 1));
    return true;
  }

private:
  static constexpr int kEnd = -1;

  int nextByte() noexcept {
    if (at_ == read_) {
      do {
        read_ = ::read(file_, bytes_.data(), bytes_.size());
      } while (read_ < 0 && errno == EINTR);
      at_ = 0;
    }
    if (read_ <= 0) {
      read_ = 0;
      return kEnd;
    }
    return static_cast<unsigned char>(bytes_[static_cast<std::size_t>(at_++)]);
  }

  int file_;
  ssize_t at_ = 0;
  ssize_t read_ = 0;
  std::array<char, 1024> bytes_;
  std::array<char, kLineBytes> line_;
};

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
  const Descriptor file = openRegistry();
  Lines lines(file.get());
  std::array<char, kLineBytes> valueName;
  std::string_view line;
  bool inKey = false;
  bool found = false;
  for (bool first = true; file && lines.next(line); first = false) {
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
