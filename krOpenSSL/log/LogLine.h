// The text of a log line.
#pragma once

#include <array>
#include <cstdarg>
#include <string_view>

namespace krOpenSSL {

/// Where a line comes from. A null component leaves the component's part out; an empty one does not.
struct LogSource {
  const char *file;
  int line;
  const char *component;
};

/// Room for one line of the log file.
class LogLine {
public:
  /// The most that prefix, component name and message have together; what is beyond is cut.
  static constexpr int kMostCharacters = 4035;

  /// Level and component, then prefix, component name and message. The text is good until the next call.
  std::string_view print(int level, int component, const LogSource &source, const char *message,
                         std::va_list arguments) noexcept;

private:
  std::array<char, 4096> text_;
};

} // namespace krOpenSSL
