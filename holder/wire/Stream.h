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

/// The frames that come over a socket, a call of the system for each: what comes with one of the next is kept for it.
class Incoming {
public:
  /// @param socket  lives longer than this
  explicit Incoming(const Descriptor &socket) : socket_(socket) {}
  ~Incoming();
  Incoming(const Incoming &) = delete;
  Incoming &operator=(const Incoming &) = delete;

  /// Waits for the first bytes of a frame, for as long as it takes.
  Outcome await() noexcept;

  /// Receives one frame.
  /// @param payload  is replaced
  Outcome next(Bytes &payload, Clock::time_point deadline);

  /// Whether nothing has come of a further frame.
  bool empty() const noexcept { return come_.empty(); }

private:
  Outcome receiveHead(Clock::time_point deadline) noexcept;

  const Descriptor &socket_;
  std::array<unsigned char, 1024> room_{};         // most frames are shorter
  std::span<unsigned char> come_{room_.data(), 0}; // the part of it that nobody has had
};

} // namespace krHolder
