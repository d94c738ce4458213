// What krseal asks of the operating system, by Windows.
#include "System.h"

#include <cstdlib>
#include <fcntl.h>
#include <io.h>
#include <share.h>
#include <sys/stat.h>

void krseal::silenceTrace() { _putenv_s("KR_TRACE", "off"); }

bool krseal::errorsAreSeen() { return _isatty(_fileno(stderr)) != 0; }

std::FILE *krseal::makeFile(const std::filesystem::path &file, Access /*access*/) {
  int made = -1;
  constexpr int kHow = _O_WRONLY | _O_CREAT | _O_EXCL | _O_BINARY | _O_NOINHERIT;
  const bool failed = _wsopen_s(&made, file.c_str(), kHow, _SH_DENYRW, _S_IREAD | _S_IWRITE) != 0;
  return failed ? nullptr : _fdopen(made, "wb");
}
