// Where the trace goes, on POSIX.
#include "accessors/TraceOutput.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstdlib>
#include <string_view>

namespace krOpenSSL {

bool traceIsTurnedOff() noexcept {
  const char *chosen = ::secure_getenv("KR_TRACE");
  return chosen != nullptr && std::string_view(chosen) == "off";
}

bool standardOutputIsOpen() noexcept { return ::fcntl(STDOUT_FILENO, F_GETFD) != -1; }

} // namespace krOpenSSL
