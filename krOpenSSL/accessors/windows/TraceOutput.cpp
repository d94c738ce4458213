// Where the trace goes, on Windows.
#include "accessors/TraceOutput.h"

#ifndef WIN32_LEAN_AND_MEAN
#define WIN32_LEAN_AND_MEAN
#endif
#ifndef NOMINMAX
#define NOMINMAX
#endif
#include <windows.h>

#include <array>
#include <string_view>

namespace krOpenSSL {

// Not by getenv: a library with a run-time of its own has another environment there.
bool traceIsTurnedOff() noexcept {
  constexpr std::string_view kOff = "off";
  std::array<char, kOff.size() + 1> chosen{};
  const DWORD length = GetEnvironmentVariableA("KR_TRACE", chosen.data(), static_cast<DWORD>(chosen.size()));
  return length == kOff.size() && chosen.data() == kOff;
}

// The handle of one that was closed, or never was, is of no type.
bool standardOutputIsOpen() noexcept { return GetFileType(GetStdHandle(STD_OUTPUT_HANDLE)) != FILE_TYPE_UNKNOWN; }

} // namespace krOpenSSL
