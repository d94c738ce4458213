// The console trace as it reaches the standard output.
#pragma once

#include <cstdio>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

namespace krTest {

using Lines = std::vector<std::string>;

/// Takes the standard output for its life and keeps what is written, line by line as it comes.
class Trace {
public:
  /// @param probe  asked at each line; see probed
  explicit Trace(std::function<bool()> probe = [] { return false; });
  ~Trace();
  Trace(const Trace &) = delete;
  Trace &operator=(const Trace &) = delete;

  Lines lines;
  std::vector<bool> probed; ///< what the probe said at each line

private:
  static ssize_t write(void *self, const char *text, std::size_t length);

  std::function<bool()> probe_;
  std::FILE *stdout_;
  std::mutex writing_;
};

/// The trace lines of messages that are parted by '|'. "@name" stands for the two lines of an accessor.
Lines tagged(const std::string &messages);

} // namespace krTest
