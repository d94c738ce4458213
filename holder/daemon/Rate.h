// A limit of operations a second.
#pragma once

#include <algorithm>
#include <chrono>
#include <mutex>

namespace krHolder {

/// Up to a second's worth at once, then as they come. Several threads may ask at once.
class Rate {
public:
  /// @param perSecond  0: no limit
  explicit Rate(double perSecond) : perSecond_(perSecond), left_(perSecond) {}

  bool take() {
    if (perSecond_ <= 0) {
      return true;
    }
    const std::lock_guard lock(mutex_);
    const auto now = Clock::now();
    left_ = std::min(perSecond_, left_ + perSecond_ * std::chrono::duration<double>(now - last_).count());
    last_ = now;
    const bool some = left_ >= 1;
    left_ -= some ? 1 : 0;
    return some;
  }

private:
  using Clock = std::chrono::steady_clock;

  const double perSecond_;
  std::mutex mutex_;
  double left_;
  Clock::time_point last_ = Clock::now();
};

} // namespace krHolder
