// The connections that are served at the moment, a thread for each.
#pragma once

#include "wire/Stream.h"

#include <condition_variable>
#include <functional>
#include <mutex>
#include <set>

namespace krHolder {

class Connections {
public:
  using Serve = std::function<void(const Descriptor &)>;

  explicit Connections(std::size_t limit) : limit_(limit) {}

  /// Serves it in a thread of its own, which ends with it.
  /// When there are as many as the limit it is told so and closed; without a thread it is closed.
  /// @return whether it is served
  bool add(Descriptor connection, Serve serve);

  std::size_t count() const;

  /// Has all end after the answer that they are at, and waits for that.
  void end(Clock::time_point deadline);

private:
  void remove(int descriptor);

  const std::size_t limit_;
  mutable std::mutex mutex_;
  std::condition_variable changed_;
  std::set<int> open_;
};

} // namespace krHolder
