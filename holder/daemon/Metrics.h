// What the holder has done, counted, in Prometheus's text form.
#pragma once

#include "wire/Message.h"

#include <chrono>
#include <map>
#include <mutex>
#include <string>
#include <tuple>

namespace krHolder {

std::string_view nameOf(Operation operation);
std::string_view nameOf(Status status);

/// Several threads may use it at once.
class Metrics {
public:
  void count(const std::string &key, Operation operation, Status status, std::chrono::nanoseconds took);

  /// Writes all of it beside the file and moves it there, so that nobody reads half of it.
  /// @return false when that failed
  bool write(const std::string &file, std::size_t connections) const;

private:
  struct Cell {
    std::uint64_t count = 0;
    std::chrono::nanoseconds time{0};
  };

  std::string text(std::size_t connections) const;

  mutable std::mutex mutex_;
  std::map<std::tuple<std::string, Operation, Status>, Cell> cells_;
};

} // namespace krHolder
