// The size at which the log file is rotated.
#include "log/LogLimit.h"

#include "platform/Platform.h"

#include <algorithm>
#include <array>
#include <cstring>

namespace krOpenSSL {

std::uint32_t logLimitFrom(const char *text) noexcept {
  constexpr std::uint32_t kMostMiB = 4094;
  const char *digit = text + std::strspn(text, " \t\n\v\f\r");
  digit += *digit == '+' ? 1 : 0; // a minus sign leaves no number of 1 or more
  std::uint32_t number = 0;
  for (; *digit >= '0' && *digit <= '9'; ++digit) {
    number = std::min(number * 10 + static_cast<std::uint32_t>(*digit - '0'), kMostMiB);
  }
  return number >= 1 ? number << 20U : kDefaultLogLimitBytes;
}

std::uint32_t readLogLimit() noexcept {
  std::array<char, 260> text;
  const bool found = platform::registryText(R"(SOFTWARE\Corvane\Logging)", "LogSizeInMB", text.data(), text.size());
  return found ? logLimitFrom(text.data()) : kDefaultLogLimitBytes;
}

} // namespace krOpenSSL
