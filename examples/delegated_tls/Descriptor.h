// Owned file descriptors, and TCP sockets on loopback.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>
#include <utility>

namespace delegated_tls {

class Descriptor {
public:
  Descriptor() = default;
  explicit Descriptor(int descriptor) : descriptor_(descriptor) {}
  Descriptor(Descriptor &&other) noexcept : descriptor_(std::exchange(other.descriptor_, -1)) {}
  Descriptor &operator=(Descriptor &&other) noexcept {
    reset(std::exchange(other.descriptor_, -1));
    return *this;
  }
  ~Descriptor() { reset(); }

  int get() const { return descriptor_; }
  explicit operator bool() const { return descriptor_ >= 0; }
  void reset(int descriptor = -1);

private:
  int descriptor_ = -1;
};

using Deadline = std::chrono::steady_clock::time_point;
enum class Wanted { toRead, toWrite };

/// Sending and receiving give up after this time without progress.
void setTimeout(const Descriptor &socket, std::chrono::seconds timeout);

/// Sending and receiving do not wait at all from now on: waitFor does.
void setNonBlocking(const Descriptor &socket);

/// Waits until the socket can be read or written, or its peer is gone; false once the deadline has passed.
bool waitFor(const Descriptor &socket, Wanted wanted, Deadline deadline);

/// Ends the sending side of a socket that does not block, and takes in what the peer still sends until it ends its
/// side too. Closing with bytes unread would take back those that are on their way to the peer.
void finish(const Descriptor &socket, Deadline deadline);

/// A socket listening on 127.0.0.1; port 0 takes a free one.
Descriptor listenOnLoopback(std::uint16_t port);
std::uint16_t portOf(const Descriptor &socket);

/// The other end of a connection, for people: "127.0.0.1:50123".
std::string peerOf(const Descriptor &socket);

/// The next connection; an empty descriptor once stopListening was called.
Descriptor acceptConnection(const Descriptor &listener);
void stopListening(const Descriptor &listener);

/// Ends a connection from another thread: whoever reads or writes there fails at once.
void stopConnection(int descriptor);

Descriptor connectToLoopback(std::uint16_t port);

} // namespace delegated_tls
