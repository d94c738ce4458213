// The log writer: one line at a time, under the log lock from the size check to the close of the file.
#include "log/krCustomLogger.h"

#include "log/LogFile.h"
#include "log/LogLine.h"
#include "log/LogLock.h"
#include "platform/CallersErrors.h"
#include "platform/CancellationDelay.h"

#include <cstdint>

using namespace krOpenSSL;

constinit std::atomic<std::uint32_t> krLogThreshold{0};

namespace {

constexpr std::uint32_t kQuietThreshold = 3;
constexpr LogSource kThisSource{"krCustomLogger.cpp", 363, ""};

void writeLine(int level, int component, const LogSource &source, const char *format, std::va_list arguments) {
  const LogLock lock;
  platform::AppendFile stream;
  krLogCheckSize(stream);
  if (krLogOpenAppend(stream) == 0) {
    LogLine line;
    const std::string_view text = line.print(level, component, source, format, arguments);
    stream.write(text.data(), text.size());
  }
}

// Whatever goes wrong costs this line only. The library that logs may be about to look at its error.
void tryLine(int level, int component, const LogSource &source, const char *format, std::va_list arguments) noexcept {
  const CancellationDelay wholeLine;
  const platform::CallersErrors kept;
  try {
    writeLine(level, component, source, format, arguments);
  } catch (...) { // NOLINT(bugprone-empty-catch): the line is dropped
  }
}

[[gnu::format(printf, 4, 5)]] void tryLine(int level, int component, const LogSource &source, const char *format,
                                           ...) noexcept {
  std::va_list arguments;
  va_start(arguments, format);
  tryLine(level, component, source, format, arguments);
  va_end(arguments);
}

} // namespace

void krLogLine(int level, int component, const char *message) noexcept {
  tryLine(level, component, kThisSource, "%.*s", LogLine::kMostCharacters, message == nullptr ? "" : message);
}

void krLogWrite(const char *file, int line, const char *component, const char *format, ...) noexcept {
  const std::uint32_t threshold = krLogThreshold.load(std::memory_order_relaxed);
  if (threshold <= kQuietThreshold) {
    return;
  }
  std::va_list arguments;
  va_start(arguments, format);
  tryLine(static_cast<int>(threshold), 0, {file, line, component}, format == nullptr ? "" : format, arguments);
  va_end(arguments);
}
