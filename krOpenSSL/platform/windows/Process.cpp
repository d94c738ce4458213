// What a log line says of its moment: the local time, the process and the thread. Processes do not fork here.
#include "platform/Platform.h"
#include "platform/windows/Win32.h"

namespace krOpenSSL::platform {

std::int64_t processId() noexcept { return GetCurrentProcessId(); }

std::uint32_t threadId() noexcept { return GetCurrentThreadId(); }

LocalTime localTime() noexcept {
  SYSTEMTIME now{};
  GetLocalTime(&now);
  return {now.wYear, now.wMonth, now.wDay, now.wHour, now.wMinute, now.wSecond, now.wMilliseconds};
}

} // namespace krOpenSSL::platform
