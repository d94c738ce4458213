// The text of a log line: when, where from, what.
#include "log/LogLine.h"

#include "platform/Platform.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdio>

namespace krOpenSSL {
namespace {

constexpr std::string_view kEnd = " \n";

// Bounded printing, one piece behind the other. A piece that cannot be printed is left out.
class Text {
public:
  explicit Text(char *buffer) noexcept : buffer_(buffer) {}

  [[gnu::format(printf, 2, 3)]] void append(const char *format, ...) noexcept {
    std::va_list arguments;
    va_start(arguments, format);
    appendList(format, arguments);
    va_end(arguments);
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

using TimeStamp = std::array<char, sizeof "2031/02/03 04:05:06.007">;

// By hand: printf takes longer over seven numbers than the system over the write.
TimeStamp timeStamp() noexcept {
  struct Field {
    int value, digits;
    char end;
  };
  const platform::LocalTime now = platform::localTime();
  TimeStamp stamp{};
  std::size_t length = 0;
  for (auto [value, digits, end] :
       {Field{now.year, 4, '/'}, Field{now.month, 2, '/'}, Field{now.day, 2, ' '}, Field{now.hour, 2, ':'},
        Field{now.minute, 2, ':'}, Field{now.second, 2, '.'}, Field{now.millisecond, 3, '\0'}}) {
    length += static_cast<std::size_t>(digits);
    for (std::size_t at = length; digits > 0; --digits, value /= 10) {
      stamp[--at] = static_cast<char>('0' + value % 10);
    }
    stamp[length++] = end;
  }
  return stamp;
}

void appendPrefix(Text &text, const LogSource &source) noexcept {
  text.append("%s p%04d t%x %s:%d - ", timeStamp().data(), static_cast<int>(platform::processId()),
              platform::threadId(), baseName(source.file), source.line);
}

} // namespace

std::string_view LogLine::print(int level, int component, const LogSource &source, const char *message,
                                std::va_list arguments) noexcept {
  Text text(text_.data());
  text.append("%d, c=%d ", level, component);
  text.limit(kMostCharacters);
  appendPrefix(text, source);
  if (source.component != nullptr) {
    text.append("'%s' ", source.component);
  }
  text.appendList(message, arguments);
  text.limit(kEnd.size());
  text.append("%s", kEnd.data());
  return text.view();
}

} // namespace krOpenSSL
