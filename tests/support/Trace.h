// The console trace as it reaches the standard output.
#pragma once

#include <string>
#include <vector>

namespace krTest {

using Lines = std::vector<std::string>;

/// Reads the test's standard output, which is kept from the console (Main.cpp). One at a time.
class Trace {
public:
  Trace() { clear(); }

  /// What has been written since the start or the last clear.
  Lines lines() const;
  void clear();

private:
  mutable std::string text_;
};

/// The trace lines of messages that are parted by '|'. "@name" stands for the two lines of an accessor.
Lines tagged(const std::string &messages);

} // namespace krTest
