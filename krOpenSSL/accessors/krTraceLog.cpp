// The console trace.
#include "accessors/krTraceLog.h"

#include "accessors/TraceOutput.h"
#include "platform/CancellationDelay.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cstdarg>
#include <cstddef>
#include <cstdio>
#include <initializer_list>
#include <string_view>

using namespace krOpenSSL;

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

void print(const Line &line, std::size_t length) noexcept {
  const CancellationDelay wholeLine;
  (void)std::fwrite(line.data(), 1, length, stdout);
}

// Once off, the trace stays so: what gets the number of a standard output that was closed is somebody's file or
// connection.
enum class Output : unsigned char { undecided, on, off };
constinit std::atomic<Output> output{Output::undecided};

// Apart, so that a line costs a load more and nothing else.
[[gnu::cold, gnu::noinline]] Output decide() noexcept {
  Output decided = Output::undecided;
  const Output found = !traceIsTurnedOff() && standardOutputIsOpen() ? Output::on : Output::off;
  return output.compare_exchange_strong(decided, found) ? found : decided;
}

bool isOn() noexcept {
  const Output known = output.load(std::memory_order_relaxed);
  return known == Output::on || (known == Output::undecided && decide() == Output::on);
}

} // namespace

void krOpenSSL::checkTraceOutput() noexcept {
  if (isOn() && !standardOutputIsOpen()) {
    output.store(Output::off);
  }
}

int krTraceLog(const char *tag, const char *format, ...) noexcept {
  if (!isOn()) {
    return 0;
  }
  Line line;
  if (join(line, {tag, " ", format, std::string_view("\n", sizeof "\n")}) == 0) {
    return -1;
  }
  const CancellationDelay wholeLine;
  std::va_list arguments;
  va_start(arguments, format);
  // NOLINTNEXTLINE(clang-analyzer-valist.Uninitialized): the analyzer does not follow va_start here
  const int printed = std::vprintf(line.data(), arguments);
  va_end(arguments);
  return printed;
}

void krOpenSSL::traceStep(const char *step, const char *accessor) noexcept {
  if (!isOn()) {
    return;
  }
  Line line;
  print(line, join(line, {kTraceTag, " ", step, " - ", accessor, "\n"}));
}

void krOpenSSL::traceSteps(const char *accessor) noexcept {
  if (!isOn()) {
    return;
  }
  Line line;
  print(line, join(line, {kTraceTag, " Start - ", accessor, "\n", kTraceTag, " End - ", accessor, "\n"}));
}
