// What a log line says of its moment: the local time and the thread.
#include "platform/Platform.h"

#include <unistd.h>

#include <ctime>

namespace krOpenSSL::platform {

std::uint32_t threadId() noexcept { return static_cast<std::uint32_t>(::gettid()); }

LocalTime localTime() noexcept {
  constexpr long kNanosecondsPerMillisecond = 1'000'000;
  timespec now{};
  std::tm fields{};
  if (::clock_gettime(CLOCK_REALTIME, &now) != 0 || ::localtime_r(&now.tv_sec, &fields) == nullptr) {
    return {};
  }
  return {fields.tm_year + 1900,
          fields.tm_mon + 1,
          fields.tm_mday,
          fields.tm_hour,
          fields.tm_min,
          fields.tm_sec,
          static_cast<int>(now.tv_nsec / kNanosecondsPerMillisecond)};
}

} // namespace krOpenSSL::platform
