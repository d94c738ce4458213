// The log lock: held across forks, usable from the first to the last moment of the process.
#include "log/LogLock.h"

#include "platform/Mutex.h"
#include "platform/Platform.h"

namespace krOpenSSL {
namespace {

constinit platform::Mutex logMutex; // trivially destroyed
// Other handlers of a fork may log while this thread holds the lock for it.
constinit thread_local bool isForking = false;

// A fork waits for the line that is being written, so that the child finds neither the lock held nor the
// state behind it (ours, and the time zone's in the C library) half changed. A line needs nothing that the
// thread which forks could hold, so the wait ends.
void beforeFork() noexcept {
  logMutex.lock();
  isForking = true;
}

void afterFork() noexcept {
  isForking = false;
  logMutex.unlock();
}

[[maybe_unused]] const bool forksWait = platform::holdAcrossForks(beforeFork, afterFork);

} // namespace

LogLock::LogLock() : held_(!isForking) {
  if (held_) {
    logMutex.lock();
  }
}

LogLock::~LogLock() {
  if (held_) {
    logMutex.unlock();
  }
}

void LogLock::ifFree(void (*work)() noexcept) noexcept {
  if (logMutex.try_lock()) {
    work();
    logMutex.unlock();
  }
}

} // namespace krOpenSSL
