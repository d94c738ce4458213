// By a stream of our own for stdout, which hands over each line as it comes.
#include "support/Trace.h"

#include "support/Allocations.h"

#include <cstdio>
#include <mutex>
#include <utility>

namespace krTest {

struct Trace::Capture {
  static ssize_t write(void *self, const char *text, std::size_t length) {
    const allocations::Spared spared;
    auto *capture = static_cast<Capture *>(self);
    const std::scoped_lock lock(capture->writing); // the stream's lock is not seen by the thread sanitizer
    capture->lines.emplace_back(text, length);
    capture->probed.push_back(capture->probe());
    return static_cast<ssize_t>(length);
  }

  std::function<bool()> probe;
  std::vector<bool> &probed;
  std::FILE *before;
  Lines lines{};
  std::mutex writing{};
};

Trace::Trace(std::function<bool()> probe) : capture_(new Capture{std::move(probe), probed, stdout}) {
  stdout = fopencookie(capture_.get(), "w", {nullptr, Capture::write, nullptr, nullptr});
  (void)std::setvbuf(stdout, nullptr, _IOLBF, BUFSIZ);
}

Trace::~Trace() { (void)std::fclose(std::exchange(stdout, capture_->before)); }

const Lines &Trace::lines() const { return capture_->lines; }

void Trace::clear() { capture_->lines.clear(); }

} // namespace krTest
