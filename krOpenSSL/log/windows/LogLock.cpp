// The log lock where processes do not fork, and no handler of signals interrupts a line to write another one.
#include "log/LogLock.h"

#include "platform/Mutex.h"

namespace krOpenSSL {
namespace {

constinit platform::Mutex logLock; // trivially destroyed

} // namespace

LogLock::LogLock() noexcept { logLock.lock(); }

LogLock::~LogLock() { logLock.unlock(); }

void LogLock::ifFree(void (*work)() noexcept) noexcept {
  if (logLock.try_lock()) {
    work();
    logLock.unlock();
  }
}

} // namespace krOpenSSL
