// The console trace as it reaches the standard output.
#pragma once

#include <functional>
#include <memory>
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

  /// What has been written since the start or the last clear.
  const Lines &lines() const;
  void clear();

  std::vector<bool> probed; ///< what the probe said at each line; posix/ only

private:
  struct Capture; // what the system takes to catch the standard output
  std::unique_ptr<Capture> capture_;
};

/// The trace lines of messages that are parted by '|'. "@name" stands for the two lines of an accessor.
Lines tagged(const std::string &messages);

} // namespace krTest
