// Frames over a stream socket: no call waits longer than its deadline.
#include "Stream.h"

#include <algorithm>
#include <cerrno>
#include <climits>
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

Outcome receiveAll(const Descriptor &socket, std::span<unsigned char> out, Clock::time_point deadline) noexcept {
  while (!out.empty()) {
    const ssize_t received = recv(socket.get(), out.data(), out.size(), MSG_DONTWAIT);
    if (received > 0) {
      out = out.subspan(static_cast<std::size_t>(received));
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

Outcome receive(const Descriptor &socket, Bytes &payload, Clock::time_point deadline) {
  std::array<unsigned char, kHeadBytes> head;
  if (const Outcome outcome = receiveAll(socket, head, deadline); outcome != Outcome::done) {
    return outcome;
  }
  const auto length = payloadBytes(head);
  if (!length) {
    return Outcome::malformed;
  }
  payload.assign(*length, 0);
  return receiveAll(socket, payload, deadline);
}

} // namespace krHolder
