// Console events as a request to stop.
#include "StopSignals.h"

#include <windows.h>

namespace delegated_tls {
namespace {

HANDLE stop = nullptr;

BOOL WINAPI onControl(DWORD /*event*/) { return SetEvent(stop); }

} // namespace

StopSignals::StopSignals() {
  stop = CreateEventW(nullptr, TRUE, FALSE, nullptr);
  SetConsoleCtrlHandler(onControl, TRUE);
}

void StopSignals::wait() const { WaitForSingleObject(stop, INFINITE); }

} // namespace delegated_tls
