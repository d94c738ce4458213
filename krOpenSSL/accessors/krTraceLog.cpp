// The console trace.
#include "accessors/krTraceLog.h"

#include <algorithm>
#include <array>
#include <cstdarg>
#include <cstddef>
#include <cstdio>
#include <initializer_list>
#include <string_view>

namespace {

constexpr std::size_t kLineFormatBytes = 2048;
using Line = std::array<char, kLineFormatBytes>;

// Joins the texts and returns their length; 0 when they do not fit. Not by printf: this runs twice around each
// traced call.
std::size_t join(Line &line, std::initializer_list<std::string_view> texts) noexcept {
  std::size_t length = 0;
  for (const std::string_view text : texts) {
    if (text.size() > line.size() - length) {
      return 0;
    }
    std::copy_n(text.data(), text.size(), line.data() + length);
    length += text.size();
  }
  return length;
}

} // namespace

int krTraceLog(const char *tag, const char *format, ...) noexcept {
  Line line;
  if (join(line, {tag, " ", format, std::string_view("\n", sizeof "\n")}) == 0) {
    return -1;
  }
  std::va_list arguments;
  va_start(arguments, format);
  // NOLINTNEXTLINE(clang-analyzer-valist.Uninitialized): the analyzer does not follow va_start here
  const int printed = std::vprintf(line.data(), arguments);
  va_end(arguments);
  return printed;
}

void krOpenSSL::traceStep(const char *step, const char *accessor) noexcept {
  Line line;
  const std::size_t length = join(line, {krOpenSSL::kTraceTag, " ", step, " - ", accessor, "\n"});
  (void)std::fwrite(line.data(), 1, length, stdout);
}
