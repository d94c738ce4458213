// The text of a log line: when, where from, what.
#include "log/LogLine.h"

#include "platform/Platform.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <concepts>
#include <cstdint>
#include <cstdio>

namespace krOpenSSL {
namespace {

constexpr std::string_view kEnd = " \n";

// Bounded printing, one piece behind the other. A piece that cannot be printed is left out. Only the message goes by
// printf, which takes longer over a number than its digits are worth.
class Text {
public:
  explicit Text(char *buffer) noexcept : buffer_(buffer) {}

  void append(std::string_view piece) noexcept {
    const std::size_t count = std::min(piece.size(), most_ - length_);
    std::copy_n(piece.data(), count, buffer_ + length_);
    length_ += count;
  }

  /// With so many digits at least.
  template <std::integral Number> void append(Number number, std::size_t digits = 1, int base = 10) noexcept {
    constexpr std::string_view kZeros = "000";
    std::array<char, 24> text;
    const char *end = std::to_chars(text.data(), text.data() + text.size(), number, base).ptr;
    const auto length = static_cast<std::size_t>(end - text.data());
    append(kZeros.substr(0, digits - std::min(digits, length)));
    append(std::string_view(text.data(), length));
  }

  void appendList(const char *format, std::va_list arguments) noexcept {
    const std::size_t room = most_ + 1 - length_;
    // NOLINTNEXTLINE(clang-analyzer-valist.Uninitialized): the analyzer does not follow va_start
    const int printed = std::vsnprintf(buffer_ + length_, room, format, arguments);
    length_ += std::min(static_cast<std::size_t>(std::max(printed, 0)), room - 1);
  }

  /// Has the text take so many more characters than it has now.
  void limit(std::size_t more) noexcept { most_ = length_ + more; }

  [[nodiscard]] std::string_view view() const noexcept { return {buffer_, length_}; }

private:
  char *buffer_;
  std::size_t length_ = 0;
  std::size_t most_ = LogLine::kMostCharacters;
};

const char *baseName(const char *path) noexcept {
  if (path == nullptr) {
    return "";
  }
  const std::string_view all = path;
  const std::size_t separator = all.find_last_of("/\\");
  return separator == std::string_view::npos ? path : path + separator + 1;
}

void appendTime(Text &text) noexcept {
  struct Field {
    int value;
    std::size_t digits;
    std::string_view end;
  };
  const platform::LocalTime now = platform::localTime();
  for (const auto &[value, digits, end] :
       {Field{now.year, 4, "/"}, Field{now.month, 2, "/"}, Field{now.day, 2, " "}, Field{now.hour, 2, ":"},
        Field{now.minute, 2, ":"}, Field{now.second, 2, "."}, Field{now.millisecond, 3, " p"}}) {
    text.append(value, digits);
    text.append(end);
  }
}

void appendPrefix(Text &text, const LogSource &source) noexcept {
  constexpr int kHexadecimal = 16;
  appendTime(text);
  text.append(platform::processId(), 4);
  text.append(" t");
  text.append(platform::threadId(), 1, kHexadecimal);
  text.append(" ");
  text.append(baseName(source.file));
  text.append(":");
  text.append(source.line);
  text.append(" - ");
}

} // namespace

std::string_view LogLine::print(int level, int component, const LogSource &source, const char *message,
                                std::va_list arguments) noexcept {
  Text text(text_.data());
  text.append(level);
  text.append(", c=");
  text.append(component);
  text.append(" ");
  text.limit(kMostCharacters);
  appendPrefix(text, source);
  if (source.component != nullptr) {
    text.append("'");
    text.append(source.component);
    text.append("' ");
  }
  text.appendList(message, arguments);
  text.limit(kEnd.size());
  text.append(kEnd);
  return text.view();
}

} // namespace krOpenSSL
