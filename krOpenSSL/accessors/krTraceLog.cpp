// The console trace.
#include "accessors/krTraceLog.h"

#include <array>
#include <cstdarg>
#include <cstddef>
#include <cstdio>

namespace {

constexpr std::size_t kLineFormatBytes = 2048;

} // namespace

int krTraceLog(const char *tag, const char *format, ...) noexcept {
  std::array<char, kLineFormatBytes> line{};
  const int length = std::snprintf(line.data(), line.size(), "%s %s\n", tag, format);
  if (length < 0 || static_cast<std::size_t>(length) >= line.size()) {
    return -1;
  }
  std::va_list arguments;
  va_start(arguments, format);
  // NOLINTNEXTLINE(clang-analyzer-valist.Uninitialized): the analyzer does not follow va_start here
  const int printed = std::vprintf(line.data(), arguments);
  va_end(arguments);
  return printed;
}
