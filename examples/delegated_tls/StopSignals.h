// What asks a program to stop: SIGINT and SIGTERM, or Ctrl-C and Ctrl-Break on a Windows console.
#pragma once

namespace delegated_tls {

/// From now on nothing but wait takes them. Make it before there are threads, and once.
class StopSignals {
public:
  StopSignals();

  /// Returns when the program is asked to stop.
  void wait() const;
};

} // namespace delegated_tls
