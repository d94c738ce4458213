// A lock that needs neither making nor destroying: the system's slim one.
#include "platform/Mutex.h"
#include "platform/windows/Win32.h"

namespace krOpenSSL::platform {
namespace {

SRWLOCK *slim(void **lock) noexcept {
  static_assert(sizeof(SRWLOCK) == sizeof *lock && SRWLOCK(SRWLOCK_INIT).Ptr == nullptr);
  return reinterpret_cast<SRWLOCK *>(lock);
}

} // namespace

void Mutex::lock() noexcept { AcquireSRWLockExclusive(slim(&lock_)); }

bool Mutex::try_lock() noexcept { return TryAcquireSRWLockExclusive(slim(&lock_)) != 0; }

void Mutex::unlock() noexcept { ReleaseSRWLockExclusive(slim(&lock_)); }

} // namespace krOpenSSL::platform
