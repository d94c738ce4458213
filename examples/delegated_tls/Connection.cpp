// A connection that does not block: each step is tried again once the socket is ready, until the deadline.
#include "Connection.h"

#include "Failure.h"
#include "Tls.h"

#include <openssl/err.h>

#include <algorithm>
#include <array>

namespace delegated_tls {
namespace {

using Clock = std::chrono::steady_clock;

constexpr std::chrono::seconds kTime{10};
constexpr std::chrono::seconds kFinishTime{2};
constexpr std::size_t kMaxRequestBytes = 8192;

bool isWaiting(int error) { return error == SSL_ERROR_WANT_READ || error == SSL_ERROR_WANT_WRITE; }

void requireDone(const std::string &what, int error) {
  if (error == SSL_ERROR_NONE) {
    return;
  }
  if (isWaiting(error)) {
    throw Failure(what + ": not done within " + std::to_string(kTime.count()) + " s");
  }
  if (error == SSL_ERROR_SYSCALL && ERR_peek_error() == 0) {
    throw Failure(what + ": the client ended the connection");
  }
  throw opensslFailure(what);
}

// RFC 9112, 2.2: a line may end in a line feed alone.
bool endsInEmptyLine(const std::string &request) {
  return request.find("\n\r\n") != std::string::npos || request.find("\n\n") != std::string::npos;
}

} // namespace

Connection::Connection(SSL_CTX *context, const Descriptor &socket)
    : socket_(socket), deadline_(Clock::now() + kTime), ssl_(makeConnection(context, socket)) {
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
  while (request.size() < kMaxRequestBytes && !endsInEmptyLine(request)) {
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
