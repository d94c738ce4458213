// By a file in place of the standard output.
#include "support/Trace.h"

#include <fcntl.h>
#include <io.h>
#include <sys/stat.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <sstream>

namespace krTest {

struct Trace::Capture {
  static constexpr int kStandardOutput = 1;

  Capture() {
    char *name = _tempnam(nullptr, "krTrace");
    file = _open(name, _O_RDWR | _O_CREAT | _O_TEMPORARY | _O_BINARY, _S_IREAD | _S_IWRITE);
    std::free(name);
    (void)std::fflush(stdout);
    before = _dup(kStandardOutput);
    _dup2(file, kStandardOutput);
  }
  ~Capture() {
    (void)std::fflush(stdout);
    _dup2(before, kStandardOutput);
    _close(before);
    _close(file);
  }
  Capture(const Capture &) = delete;
  Capture &operator=(const Capture &) = delete;

  int file = -1;
  int before = -1;
  long seen = 0;
  Lines lines{};
};

Trace::Trace(std::function<bool()> /*probe*/) // NOLINT(performance-unnecessary-value-param)
    : capture_(new Capture) {}

Trace::~Trace() = default;

const Lines &Trace::lines() const {
  std::array<char, 4096> piece;
  std::string text;
  (void)std::fflush(stdout);
  _lseek(capture_->file, capture_->seen, SEEK_SET); // the end is where both descriptors are left again
  for (int got = 0; (got = _read(capture_->file, piece.data(), piece.size())) > 0;) {
    text.append(piece.data(), static_cast<std::size_t>(got));
  }
  capture_->seen += static_cast<long>(text.size());
  std::istringstream stream(text);
  for (std::string line; std::getline(stream, line);) {
    capture_->lines.push_back(line.substr(0, line.find('\r')) + "\n");
  }
  return capture_->lines;
}

void Trace::clear() {
  lines();
  capture_->lines.clear();
}

} // namespace krTest
