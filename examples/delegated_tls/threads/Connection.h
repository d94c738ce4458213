// One TLS connection of the server. Whatever the client does, it has one deadline for all of it.
#pragma once

#include "Descriptor.h"

#include <krOpenSSL/krHandles.h>

#include <string>

namespace delegated_tls {

/// Its steps throw a Failure with the reason.
class Connection {
public:
  /// The socket has to outlive it.
  Connection(krOpenSSL::SSLPtr ssl, const Descriptor &socket);

  /// Waits a moment for the client to take what was sent.
  ~Connection();
  Connection(const Connection &) = delete;
  Connection &operator=(const Connection &) = delete;

  SSL *ssl() const { return ssl_.get(); }

  void shakeHands();

  /// The head of an HTTP request, or what came of it when the client stopped there or the time was up.
  std::string readRequest();

  void write(const std::string &text);

  /// Says that nothing more follows (close_notify).
  void close();

private:
  template <class Step> int complete(Step step);

  const Descriptor &socket_;
  Deadline deadline_;
  krOpenSSL::SSLPtr ssl_;
};

} // namespace delegated_tls
