// What krseal asks of the operating system, by POSIX.
#include "System.h"

#include <cstdlib>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

void krseal::silenceTrace() { setenv("KR_TRACE", "off", 1); } // NOLINT(concurrency-mt-unsafe): one thread

bool krseal::errorsAreSeen() { return isatty(STDERR_FILENO) != 0; }

std::FILE *krseal::makeFile(const std::filesystem::path &file, Access access) {
  constexpr mode_t kOwner = S_IRUSR | S_IWUSR;
  constexpr mode_t kEveryone = kOwner | S_IRGRP | S_IWGRP | S_IROTH | S_IWOTH; // what the umask leaves of it
  const int made =
      open(file.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, access == Access::owner ? kOwner : kEveryone);
  return made < 0 ? nullptr : fdopen(made, "wb");
}
