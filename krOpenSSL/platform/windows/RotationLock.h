// The lock that processes which rotate the log take turns by.
#pragma once

#include "platform/windows/Win32.h"

#include <memory>

namespace krOpenSSL::platform {

struct ReleaseMutexHandle {
  void operator()(HANDLE mutex) const noexcept {
    ReleaseMutex(mutex);
    CloseHandle(mutex);
  }
};

/// Held for its life, by one thread.
using RotationLock = std::unique_ptr<void, ReleaseMutexHandle>;

/// Null when another process keeps it for so long. One that ended while it had it leaves nothing half done that a
/// rotation would not find.
RotationLock takeRotationLock(DWORD mostMilliseconds) noexcept;

} // namespace krOpenSSL::platform
