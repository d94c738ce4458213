// Noticing forks: the handlers of pthread_atfork, and the process id for forks that run none.
#include "platform/Platform.h"

#include <pthread.h>
#include <unistd.h>

namespace krOpenSSL::platform {

bool watchForks(void (*inChild)()) noexcept { return pthread_atfork(nullptr, nullptr, inChild) == 0; }

bool holdAcrossForks(void (*before)(), void (*after)()) noexcept { return pthread_atfork(before, after, after) == 0; }

std::int64_t processId() noexcept { return getpid(); }

} // namespace krOpenSSL::platform
