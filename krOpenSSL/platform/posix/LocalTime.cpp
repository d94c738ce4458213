// The local time.
#include "platform/Platform.h"

#include <atomic>
#include <chrono>
#include <ctime>

namespace krOpenSSL::platform {
namespace {

constinit std::atomic<bool> isConverting{false};
constinit std::atomic<long> lastOffset{0};

// How many seconds the local time is ahead of the world's. The C library's conversion holds a lock of its own: what
// interrupts the conversion, and a child that was forked in the middle of it, takes the offset of the line before.
long offsetAt(std::time_t now) noexcept {
  if (!isConverting.exchange(true)) {
    std::tm fields{};
    if (::localtime_r(&now, &fields) != nullptr) {
      lastOffset.store(fields.tm_gmtoff);
    }
    isConverting.store(false);
  }
  return lastOffset.load();
}

} // namespace

LocalTime localTime() noexcept {
  using namespace std::chrono;
  timespec now{};
  if (::clock_gettime(CLOCK_REALTIME, &now) != 0) {
    return {};
  }
  const sys_seconds local{seconds{now.tv_sec + offsetAt(now.tv_sec)}};
  const auto day = floor<days>(local);
  const year_month_day date{day};
  const hh_mm_ss time{local - day};
  return {static_cast<int>(date.year()),
          static_cast<int>(static_cast<unsigned>(date.month())),
          static_cast<int>(static_cast<unsigned>(date.day())),
          static_cast<int>(time.hours().count()),
          static_cast<int>(time.minutes().count()),
          static_cast<int>(time.seconds().count()),
          static_cast<int>(duration_cast<milliseconds>(nanoseconds{now.tv_nsec}).count())};
}

} // namespace krOpenSSL::platform
