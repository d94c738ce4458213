// A connection that does not block: each step is tried again once the socket is ready, until the deadline.
#include "threads/Connection.h"

#include "Failure.h"
#include "Service.h"

#include <openssl/err.h>

#include <algorithm>
#include <array>

namespace delegated_tls {
namespace {

using Clock = std::chrono::steady_clock;

bool isWaiting(int error) { return error == SSL_ERROR_WANT_READ || error == SSL_ERROR_WANT_WRITE; }

void requireDone(const std::string &what, int error) {
  if (error == SSL_ERROR_NONE) {
    return;
  }
  if (isWaiting(error)) {
    throw Failure(what + ": not done within " + std::to_string(kConnectionTime.count()) + " s");
  }
  if (error == SSL_ERROR_SYSCALL && ERR_peek_error() == 0) {
    throw Failure(what + ": the client ended the connection");
  }
  throw opensslFailure(what);
}

} // namespace

Connection::Connection(krOpenSSL::SSLPtr ssl, const Descriptor &socket)
    : socket_(socket), deadline_(Clock::now() + kConnectionTime), ssl_(std::move(ssl)) {
  checked(SSL_set_fd(ssl_.get(), socket.get()), "no TLS connection could be made");
  setNonBlocking(socket);
}

Connection::~Connection() { finish(socket_, std::min(deadline_, Clock::now() + kFinishTime)); }

// What SSL_get_error says in the end: that the step still waits when the time is up.
template <class Step> int Connection::complete(Step step) {
  for (;;) {
    ERR_clear_error();
    const int error = SSL_get_error(ssl(), step());
    if (!isWaiting(error) ||
        !waitFor(socket_, error == SSL_ERROR_WANT_READ ? Wanted::toRead : Wanted::toWrite, deadline_)) {
      return error;
    }
  }
}

void Connection::shakeHands() {
  requireDone("handshake failed", complete([this] { return SSL_accept(ssl()); }));
}

std::string Connection::readRequest() {
  std::string request;
  std::array<char, 1024> part{};
  while (request.size() < kMostRequestBytes && !Service::isWhole(request)) {
    std::size_t got = 0;
    const int error = complete([&] { return SSL_read_ex(ssl(), part.data(), part.size(), &got); });
    if (error == SSL_ERROR_ZERO_RETURN || isWaiting(error)) {
      break;
    }
    requireDone("no request could be read", error);
    request.append(part.data(), got);
  }
  return request;
}

void Connection::write(const std::string &text) {
  requireDone("the answer could not be sent",
              complete([&] { return SSL_write(ssl(), text.data(), static_cast<int>(text.size())); }));
}

void Connection::close() {
  complete([this] { return SSL_shutdown(ssl()); });
}

} // namespace delegated_tls
