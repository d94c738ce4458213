// Sockets.
#include "Descriptor.h"

#include "Failure.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <system_error>
#include <thread>

namespace delegated_tls {
namespace {

constexpr int kBacklog = 64;
constexpr std::chrono::milliseconds kAcceptPause{10};

std::string reason(int error) { return std::generic_category().message(error); }

sockaddr_in loopback(std::uint16_t port) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(port);
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  return address;
}

Descriptor tcpSocket() {
  Descriptor socket(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
  if (!socket) {
    throw Failure("no socket could be made: " + reason(errno));
  }
  return socket;
}

// Failures of the listening socket itself. All others are of one connection or of the moment.
bool isFinal(int error) { return error == EINVAL || error == EBADF; }

} // namespace

void Descriptor::reset(int descriptor) {
  if (descriptor_ >= 0) {
    close(descriptor_);
  }
  descriptor_ = descriptor;
}

void setTimeout(const Descriptor &socket, std::chrono::seconds timeout) {
  const timeval time{.tv_sec = timeout.count(), .tv_usec = 0};
  setsockopt(socket.get(), SOL_SOCKET, SO_RCVTIMEO, &time, sizeof time);
  setsockopt(socket.get(), SOL_SOCKET, SO_SNDTIMEO, &time, sizeof time);
}

void setNonBlocking(const Descriptor &socket) {
  fcntl(socket.get(), F_SETFL, fcntl(socket.get(), F_GETFL) | O_NONBLOCK);
}

bool waitFor(const Descriptor &socket, Wanted wanted, Deadline deadline) {
  using std::chrono::milliseconds;
  for (;;) {
    const auto left = std::chrono::ceil<milliseconds>(deadline - std::chrono::steady_clock::now());
    if (left <= milliseconds::zero()) {
      return false;
    }
    pollfd waiting{socket.get(), static_cast<short>(wanted == Wanted::toRead ? POLLIN : POLLOUT), 0};
    if (poll(&waiting, 1, static_cast<int>(left.count())) > 0) {
      return true;
    }
  }
}

void finish(const Descriptor &socket, Deadline deadline) {
  shutdown(socket.get(), SHUT_WR);
  std::array<char, 4096> unread;
  while (waitFor(socket, Wanted::toRead, deadline) && recv(socket.get(), unread.data(), unread.size(), 0) > 0) {
  }
}

Descriptor listenOnLoopback(std::uint16_t port) {
  Descriptor socket = tcpSocket();
  const int on = 1;
  setsockopt(socket.get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
  const sockaddr_in address = loopback(port);
  if (bind(socket.get(), reinterpret_cast<const sockaddr *>(&address), sizeof address) != 0 ||
      listen(socket.get(), kBacklog) != 0) {
    throw Failure("cannot listen on 127.0.0.1 port " + std::to_string(port) + ": " + reason(errno));
  }
  return socket;
}

std::uint16_t portOf(const Descriptor &socket) {
  sockaddr_in address{};
  socklen_t length = sizeof address;
  getsockname(socket.get(), reinterpret_cast<sockaddr *>(&address), &length);
  return ntohs(address.sin_port);
}

std::string peerOf(const Descriptor &socket) {
  sockaddr_in address{};
  socklen_t length = sizeof address;
  std::array<char, INET_ADDRSTRLEN> text{};
  if (getpeername(socket.get(), reinterpret_cast<sockaddr *>(&address), &length) != 0) {
    return "gone already";
  }
  inet_ntop(AF_INET, &address.sin_addr, text.data(), text.size());
  return std::string(text.data()) + ':' + std::to_string(ntohs(address.sin_port));
}

Descriptor acceptConnection(const Descriptor &listener) {
  for (;;) {
    Descriptor connection(accept4(listener.get(), nullptr, nullptr, SOCK_CLOEXEC));
    if (connection || isFinal(errno)) {
      return connection;
    }
    std::this_thread::sleep_for(kAcceptPause);
  }
}

void stopListening(const Descriptor &listener) { shutdown(listener.get(), SHUT_RDWR); }

void stopConnection(int descriptor) { shutdown(descriptor, SHUT_RDWR); }

Descriptor connectToLoopback(std::uint16_t port) {
  Descriptor socket = tcpSocket();
  const sockaddr_in address = loopback(port);
  if (connect(socket.get(), reinterpret_cast<const sockaddr *>(&address), sizeof address) != 0) {
    throw Failure("cannot connect to 127.0.0.1 port " + std::to_string(port) + ": " + reason(errno));
  }
  return socket;
}

} // namespace delegated_tls
