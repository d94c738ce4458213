// Noticing forks: the handlers of pthread_atfork.
#include "platform/Platform.h"

#include <pthread.h>

namespace krOpenSSL::platform {

bool watchForks(void (*inChild)()) noexcept { return pthread_atfork(nullptr, nullptr, inChild) == 0; }

} // namespace krOpenSSL::platform
