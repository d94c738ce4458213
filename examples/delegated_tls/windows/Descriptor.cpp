// Sockets. Their handles fit an int, which is how OpenSSL takes them too.
#include "Descriptor.h"

#include "Failure.h"

#include <winsock2.h>
#include <ws2tcpip.h>

#include <array>
#include <atomic>
#include <system_error>

namespace delegated_tls {
namespace {

constexpr int kBacklog = 64;
constexpr std::chrono::duration<int, std::milli> kAcceptPause{50};

// Nothing but its closing would wake a thread that waits at a listening socket, so they look here.
std::atomic<int> stopped{-1};

SOCKET handle(int descriptor) { return static_cast<SOCKET>(descriptor); }
SOCKET handle(const Descriptor &descriptor) { return handle(descriptor.get()); }

std::string reason() { return std::system_category().message(WSAGetLastError()); }

void startWinsock() {
  static const int started = [] {
    WSADATA data{};
    return WSAStartup(MAKEWORD(2, 2), &data);
  }();
  if (started != 0) {
    throw Failure("Winsock cannot be started");
  }
}

sockaddr_in loopback(std::uint16_t port) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(port);
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  return address;
}

Descriptor tcpSocket() {
  startWinsock();
  Descriptor socket(static_cast<int>(::socket(AF_INET, SOCK_STREAM, 0)));
  if (!socket) {
    throw Failure("no socket could be made: " + reason());
  }
  return socket;
}

void setBlocking(const Descriptor &socket, bool blocking) {
  u_long nonBlocking = blocking ? 0 : 1;
  ioctlsocket(handle(socket), static_cast<long>(FIONBIO), &nonBlocking);
}

} // namespace

void Descriptor::reset(int descriptor) {
  if (descriptor_ >= 0) {
    closesocket(handle(descriptor_));
  }
  descriptor_ = descriptor;
}

void setTimeout(const Descriptor &socket, std::chrono::seconds timeout) {
  const auto milliseconds = static_cast<DWORD>(std::chrono::milliseconds(timeout).count());
  const auto *value = reinterpret_cast<const char *>(&milliseconds);
  setsockopt(handle(socket), SOL_SOCKET, SO_RCVTIMEO, value, sizeof milliseconds);
  setsockopt(handle(socket), SOL_SOCKET, SO_SNDTIMEO, value, sizeof milliseconds);
}

void setNonBlocking(const Descriptor &socket) { setBlocking(socket, false); }

bool waitFor(const Descriptor &socket, Wanted wanted, Deadline deadline) {
  using std::chrono::milliseconds;
  for (;;) {
    const auto left = std::chrono::ceil<milliseconds>(deadline - std::chrono::steady_clock::now());
    if (left <= milliseconds::zero()) {
      return false;
    }
    WSAPOLLFD waiting{handle(socket), static_cast<SHORT>(wanted == Wanted::toRead ? POLLRDNORM : POLLWRNORM), 0};
    if (WSAPoll(&waiting, 1, static_cast<int>(left.count())) > 0) {
      return true;
    }
  }
}

void finish(const Descriptor &socket, Deadline deadline) {
  shutdown(handle(socket), SD_SEND);
  std::array<char, 4096> unread;
  while (waitFor(socket, Wanted::toRead, deadline) &&
         recv(handle(socket), unread.data(), static_cast<int>(unread.size()), 0) > 0) {
  }
}

Descriptor listenOnLoopback(std::uint16_t port) {
  Descriptor socket = tcpSocket();
  const sockaddr_in address = loopback(port);
  if (bind(handle(socket), reinterpret_cast<const sockaddr *>(&address), sizeof address) != 0 ||
      listen(handle(socket), kBacklog) != 0) {
    throw Failure("cannot listen on 127.0.0.1 port " + std::to_string(port) + ": " + reason());
  }
  setBlocking(socket, false);
  stopped = -1;
  return socket;
}

std::uint16_t portOf(const Descriptor &socket) {
  sockaddr_in address{};
  socklen_t length = sizeof address;
  getsockname(handle(socket), reinterpret_cast<sockaddr *>(&address), &length);
  return ntohs(address.sin_port);
}

std::string peerOf(const Descriptor &socket) {
  sockaddr_in address{};
  socklen_t length = sizeof address;
  std::array<char, INET_ADDRSTRLEN> text{};
  if (getpeername(handle(socket), reinterpret_cast<sockaddr *>(&address), &length) != 0) {
    return "gone already";
  }
  inet_ntop(AF_INET, &address.sin_addr, text.data(), text.size());
  return std::string(text.data()) + ':' + std::to_string(ntohs(address.sin_port));
}

Descriptor acceptConnection(const Descriptor &listener) {
  while (stopped != listener.get()) {
    WSAPOLLFD waiting{handle(listener), POLLRDNORM, 0};
    if (WSAPoll(&waiting, 1, kAcceptPause.count()) <= 0) {
      continue;
    }
    // Several threads may have seen the connection that one of them gets.
    if (Descriptor connection(static_cast<int>(accept(handle(listener), nullptr, nullptr))); connection) {
      setBlocking(connection, true);
      return connection;
    }
  }
  return Descriptor{};
}

void stopListening(const Descriptor &listener) { stopped = listener.get(); }

void stopConnection(int descriptor) { shutdown(handle(descriptor), SD_BOTH); }

Descriptor connectToLoopback(std::uint16_t port) {
  Descriptor socket = tcpSocket();
  const sockaddr_in address = loopback(port);
  if (connect(handle(socket), reinterpret_cast<const sockaddr *>(&address), sizeof address) != 0) {
    throw Failure("cannot connect to 127.0.0.1 port " + std::to_string(port) + ": " + reason());
  }
  return socket;
}

} // namespace delegated_tls
