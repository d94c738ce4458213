// Processes do not fork here: any lock will do.
#include "platform/ForkLock.h"

namespace krOpenSSL::platform {

bool ForkLock::lock() noexcept {
  mutex_.lock();
  return false;
}

std::optional<bool> ForkLock::tryLock() noexcept { return mutex_.try_lock() ? std::optional(false) : std::nullopt; }

bool ForkLock::unlock() noexcept {
  mutex_.unlock();
  return true;
}

bool ForkLock::isHeld() const noexcept { return true; }

bool ForkLock::noticesForks() noexcept { return true; }

} // namespace krOpenSSL::platform
