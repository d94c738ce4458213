#include "support/Trace.h"

#include <sstream>
#include <utility>

namespace krTest {

Trace::Trace(std::function<bool()> probe) : probe_(std::move(probe)), stdout_(stdout) {
  stdout = fopencookie(this, "w", {nullptr, write, nullptr, nullptr});
  (void)std::setvbuf(stdout, nullptr, _IOLBF, BUFSIZ);
}

Trace::~Trace() { (void)std::fclose(std::exchange(stdout, stdout_)); }

ssize_t Trace::write(void *self, const char *text, std::size_t length) {
  auto *trace = static_cast<Trace *>(self);
  const std::scoped_lock lock(trace->writing_); // the stream has a lock, but the thread sanitizer does not see it
  trace->lines.emplace_back(text, length);
  trace->probed.push_back(trace->probe_());
  return static_cast<ssize_t>(length);
}

Lines tagged(const std::string &messages) {
  Lines lines;
  std::istringstream stream(messages);
  for (std::string message; std::getline(stream, message, '|');) {
    if (message.starts_with('@')) {
      lines.push_back("krOpenSSL Start - " + message.substr(1) + "\n");
      message.replace(0, 1, "End - ");
    }
    lines.push_back("krOpenSSL " + message + "\n");
  }
  return lines;
}

} // namespace krTest
