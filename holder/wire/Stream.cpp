// Frames over a stream socket: no call waits longer than its deadline.
#include "Stream.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstring>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

namespace krHolder {

namespace {

// Whether the socket has become ready for the events, or has ended, before the deadline.
Outcome await(const Descriptor &socket, short events, Clock::time_point deadline) noexcept {
  for (;;) {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now()).count();
    if (left <= 0) {
      return Outcome::timedOut;
    }
    pollfd entry{socket.get(), events, 0};
    const int ready = poll(&entry, 1, static_cast<int>(std::min<std::int64_t>(left, INT_MAX)));
    if (ready > 0) {
      return Outcome::done;
    }
    if (ready < 0 && errno != EINTR) {
      return Outcome::failed;
    }
  }
}

// What a call on the socket that moved nothing means: done is to try it again.
Outcome afterFailure(const Descriptor &socket, short events, Clock::time_point deadline) noexcept {
  if (errno == EINTR) {
    return Outcome::done;
  }
  if (errno == EAGAIN || errno == EWOULDBLOCK) {
    return await(socket, events, deadline);
  }
  return errno == EPIPE || errno == ECONNRESET ? Outcome::closed : Outcome::failed;
}

// Until so many bytes of the room are there, or more.
Outcome receive(const Descriptor &socket, std::span<unsigned char> room, std::size_t &there, std::size_t least,
                Clock::time_point deadline) noexcept {
  while (there < least) {
    if (const Outcome outcome = await(socket, POLLIN, deadline); outcome != Outcome::done) {
      return outcome;
    }
    const auto rest = room.subspan(there);
    const ssize_t received = recv(socket.get(), rest.data(), rest.size(), MSG_DONTWAIT);
    if (received > 0) {
      there += static_cast<std::size_t>(received);
    } else if (received == 0) {
      return Outcome::closed;
    } else if (const Outcome outcome = afterFailure(socket, POLLIN, deadline); outcome != Outcome::done) {
      return outcome;
    }
  }
  return Outcome::done;
}

} // namespace

Descriptor::~Descriptor() {
  if (value_ >= 0) {
    close(value_);
  }
}

Descriptor openSocket() { return Descriptor(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)); }

Outcome send(const Descriptor &socket, View frames, Clock::time_point deadline) noexcept {
  while (!frames.empty()) {
    const ssize_t sent = ::send(socket.get(), frames.data(), frames.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
    if (sent >= 0) {
      frames = frames.subspan(static_cast<std::size_t>(sent));
    } else if (const Outcome outcome = afterFailure(socket, POLLOUT, deadline); outcome != Outcome::done) {
      return outcome;
    }
  }
  return Outcome::done;
}

Incoming::~Incoming() { explicit_bzero(room_.data(), room_.size()); }

Outcome Incoming::await() noexcept {
  while (come_.empty()) {
    const ssize_t received = recv(socket_.get(), room_.data(), room_.size(), 0);
    if (received > 0) {
      come_ = std::span(room_).first(static_cast<std::size_t>(received));
    } else if (received == 0) {
      return Outcome::closed;
    } else if (errno != EINTR) {
      return errno == ECONNRESET ? Outcome::closed : Outcome::failed;
    }
  }
  return Outcome::done;
}

Outcome Incoming::receiveHead(Clock::time_point deadline) noexcept {
  std::memmove(room_.data(), come_.data(), come_.size());
  std::size_t there = come_.size();
  const Outcome outcome = receive(socket_, room_, there, kHeadBytes, deadline);
  come_ = std::span(room_).first(there);
  return outcome;
}

Outcome Incoming::next(Bytes &payload, Clock::time_point deadline) {
  if (const Outcome outcome = receiveHead(deadline); outcome != Outcome::done) {
    return outcome;
  }
  const auto length = payloadBytes(come_.first<kHeadBytes>());
  if (!length) {
    return Outcome::malformed;
  }
  come_ = come_.subspan(kHeadBytes);
  std::size_t there = std::min(come_.size(), *length);
  payload.resize(*length);
  std::ranges::copy(come_.first(there), payload.begin());
  come_ = come_.subspan(there);
  return receive(socket_, payload, there, *length, deadline);
}

} // namespace krHolder
