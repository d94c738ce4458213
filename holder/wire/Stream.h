// Frames over a stream socket, with a deadline for each.
#pragma once

#include "Message.h"

#include <chrono>
#include <utility>

namespace krHolder {

using Clock = std::chrono::steady_clock;

/// A file descriptor that is closed with its owner.
class Descriptor {
public:
  explicit Descriptor(int value = -1) noexcept : value_(value) {}
  Descriptor(Descriptor &&other) noexcept : value_(other.release()) {}
  Descriptor &operator=(Descriptor &&other) noexcept {
    std::swap(value_, other.value_);
    return *this;
  }
  ~Descriptor();

  int get() const noexcept { return value_; }
  int release() noexcept { return std::exchange(value_, -1); }
  explicit operator bool() const noexcept { return value_ >= 0; }

private:
  int value_;
};

/// A socket that is not inherited by programs, or none: errno tells why.
Descriptor openSocket();

/// How sending or receiving ended. Closed is the other end's doing, at once or in the middle.
enum class Outcome { done, closed, timedOut, malformed, failed };

/// Sends all of it; the peer's death raises no signal.
Outcome send(const Descriptor &socket, View frames, Clock::time_point deadline) noexcept;

/// Receives one frame.
/// @param payload  is replaced
Outcome receive(const Descriptor &socket, Bytes &payload, Clock::time_point deadline);

} // namespace krHolder
