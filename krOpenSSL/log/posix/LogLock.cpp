// The log lock: held across forks, usable from the first to the last moment of the process.
#include "log/LogLock.h"

#include "platform/ForkLock.h"
#include "platform/Platform.h"

namespace krOpenSSL {
namespace {

constinit platform::ForkLock logLock; // trivially destroyed

// How often this thread is in the log, and at which of these levels it has taken the lock: at the first, and in a child
// that was forked in the middle of a line at the first one after that. Counted before the lock is taken and after it is
// given back, so that a signal handler which forks never waits for the thread that it interrupts.
constinit thread_local int levels = 0;
constinit thread_local int takenAt = 0;

void enter() noexcept {
  const int level = levels++;
  if (level != 0 && logLock.isHeld()) {
    return;
  }
  if (logLock.lock()) {
    platform::forgetNumbers();
  }
  takenAt = level;
}

void leave() noexcept {
  if (levels - 1 == takenAt) {
    (void)logLock.unlock(); // in a child that was forked since, nothing
    takenAt = 0;
  }
  --levels;
}

// A fork waits for the line that another thread writes, so that the child finds neither the state behind the lock nor
// the time zone's in the C library half changed. A line needs nothing that the thread which forks could hold, so the
// wait ends.
[[maybe_unused]] const bool forksWait = platform::holdAcrossForks(enter, leave);

} // namespace

LogLock::LogLock() noexcept { enter(); }

LogLock::~LogLock() { leave(); }

void LogLock::ifFree(void (*work)() noexcept) noexcept {
  ++levels;
  if (logLock.tryLock()) {
    work();
    (void)logLock.unlock();
  }
  --levels;
}

} // namespace krOpenSSL
