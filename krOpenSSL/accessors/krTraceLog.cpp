// The console trace.
#include "accessors/krTraceLog.h"

#include <array>
#include <cstdarg>
#include <cstddef>
#include <cstdio>
#include <cstring>

namespace {

constexpr std::size_t kLineFormatBytes = 2048;

// Joins tag, blank, format and line break; false when they do not fit. Not by printf: this runs twice
// around each traced call.
bool joinFormat(std::array<char, kLineFormatBytes> &line, const char *tag, const char *format) noexcept {
  const std::size_t tagLength = std::strlen(tag);
  const std::size_t formatLength = std::strlen(format);
  if (tagLength + formatLength + sizeof " \n" > line.size()) {
    return false;
  }
  std::memcpy(line.data(), tag, tagLength);
  line[tagLength] = ' ';
  std::memcpy(line.data() + tagLength + 1, format, formatLength);
  std::memcpy(line.data() + tagLength + 1 + formatLength, "\n", sizeof "\n");
  return true;
}

} // namespace

int krTraceLog(const char *tag, const char *format, ...) noexcept {
  std::array<char, kLineFormatBytes> line;
  if (!joinFormat(line, tag, format)) {
    return -1;
  }
  std::va_list arguments;
  va_start(arguments, format);
  // NOLINTNEXTLINE(clang-analyzer-valist.Uninitialized): the analyzer does not follow va_start here
  const int printed = std::vprintf(line.data(), arguments);
  va_end(arguments);
  return printed;
}
