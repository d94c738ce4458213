// From accepting to closing. The connection reads and writes in memory; what comes and goes passes through the loop.
#include "loop/Session.h"

#include "Failure.h"
#include "Tls.h"

#include <openssl/err.h>

#include <algorithm>

namespace delegated_tls {
namespace {

using namespace krOpenSSL;
using asio::error_code;
using Clock = std::chrono::steady_clock;

constexpr std::size_t kMostUnread = 65536;

std::string addressOf(const asio::ip::tcp::socket &socket) {
  error_code error;
  const auto peer = socket.remote_endpoint(error);
  return error ? "gone" : peer.address().to_string() + ":" + std::to_string(peer.port());
}

} // namespace

Session::Session(Loop &loop, asio::ip::tcp::socket socket)
    : loop_(loop), socket_(std::move(socket)), timer_(loop.io), client_(addressOf(socket_)) {
  loop_.sessions.insert(this);
}

Session::~Session() { loop_.sessions.erase(this); }

void Session::start() {
  if (loop_.stops) { // accepted just before
    return;
  }
  try {
    open();
  } catch (const std::exception &failure) {
    report("connection failed: " + std::string(failure.what()) + " (client " + client_ + ')');
    return end();
  }
  setDeadline(Clock::now() + kConnectionTime);
  receive();
}

void Session::open() {
  socket_.non_blocking(true);
  SSLPtr ssl = loop_.service.connection();
  BIOPtr in(checked(BIO_new(BIO_s_mem()), "out of memory"));
  BIOPtr out(checked(BIO_new(BIO_s_mem()), "out of memory"));
  BIO_set_mem_eof_return(in.get(), -1); // empty is not the end
  in_ = in.release();
  out_ = out.release();
  SSL_set_bio(ssl.get(), in_, out_);
  const auto wake = [&io = loop_.io, weak = weak_from_this()] {
    asio::post(io, [weak] {
      if (const auto session = weak.lock()) {
        session->goOn();
      }
    });
  };
  connection_ = std::make_unique<AsyncConnection>(std::move(ssl), wake);
}

void Session::stop() {
  if (!hasSpoken_) {
    return end();
  }
  setDeadline(std::min(timer_.expiry(), Clock::now() + kFinishTime));
}

Session::Step Session::shakeHands() {
  const Step step = connection_->handshake();
  if (step == Step::done) {
    agreed_ = loop_.service.describe(connection_->get());
    report("handshake: " + agreed_);
    stage_ = &Session::readRequest;
    failure_ = "no request could be read";
  }
  return step;
}

Session::Step Session::readRequest() {
  std::array<char, 1024> part{};
  const int got = connection_->read(part.data(), static_cast<int>(part.size()));
  request_.append(part.data(), static_cast<std::size_t>(got));
  if (connection_->last() != Step::done) {
    return connection_->last();
  }
  if (got == 0 || request_.size() >= kMostRequestBytes || Service::isWhole(request_)) {
    stage_ = request_.empty() ? &Session::close : &Session::writeAnswer;
    failure_ = "the answer could not be sent";
    answer_ = Service::answerTo(request_, agreed_);
  }
  return Step::done;
}

Session::Step Session::writeAnswer() {
  connection_->write(answer_.data(), static_cast<int>(answer_.size()));
  if (connection_->last() == Step::done) {
    stage_ = &Session::close;
  }
  return connection_->last();
}

Session::Step Session::close() {
  ERR_clear_error();
  SSL_shutdown(connection_->get());
  stage_ = nullptr;
  return Step::done;
}

/// As far as it goes.
void Session::goOn() {
  while (!isOver_ && !hasEnded_) {
    if (stage_ == nullptr) {
      isOver_ = true;
      break;
    }
    const Step step = (this->*stage_)();
    note(step);
    if (step == Step::failed) {
      fail(ERR_peek_error() != 0 ? opensslFailure(std::string(failure_)).what()
                                 : std::string(failure_) + ": the client ended the connection");
    } else if (step != Step::done) {
      break;
    }
  }
  flush();
}

void Session::fail(const std::string &reason) {
  report("connection failed: " + reason + " (client " + client_ + ')');
  isOver_ = true;
}

void Session::note(Step step) {
  if (const bool waits = step == Step::wantReply; waits != isWaiting_) {
    isWaiting_ = waits;
    waits ? ++loop_.waiting : --loop_.waiting;
  }
}

void Session::setDeadline(Clock::time_point deadline) {
  timer_.expires_at(deadline);
  timer_.async_wait([self = shared_from_this()](error_code error) {
    if (!error) {
      self->timeIsUp();
    }
  });
}

void Session::timeIsUp() {
  if (hasEnded_ || isOver_) {
    return end();
  }
  if (stage_ == &Session::readRequest) { // what is there is answered
    stage_ = request_.empty() ? &Session::close : &Session::writeAnswer;
    answer_ = Service::answerTo(request_, agreed_);
    goOn();
    return end();
  }
  fail(std::string(failure_) + ": not done within " + std::to_string(kConnectionTime.count()) + " s");
  end();
}

void Session::receive() {
  if (isReading_ || hasEnded_ || (!isOver_ && BIO_ctrl_pending(in_) > kMostUnread)) {
    return;
  }
  isReading_ = true;
  socket_.async_wait(asio::ip::tcp::socket::wait_read, [self = shared_from_this()](error_code error) {
    self->isReading_ = false;
    if (!error && !self->hasEnded_) {
      self->received();
    }
  });
}

void Session::received() {
  error_code error;
  const std::size_t got = socket_.read_some(asio::buffer(loop_.part), error);
  if (error == asio::error::would_block) {
    return receive();
  }
  if (error) {
    return clientHasGone();
  }
  hasSpoken_ = true;
  if (!isOver_) { // what comes afterwards is taken in and not looked at
    BIO_write(in_, loop_.part.data(), static_cast<int>(got));
    if (!isWaiting_) {
      goOn();
    }
  }
  receive();
}

void Session::clientHasGone() {
  if (isOver_) {
    return end();
  }
  if (isWaiting_) {
    fail(std::string(failure_) + ": the client ended the connection");
    return end();
  }
  BIO_set_mem_eof_return(in_, 0);
  goOn();
}

void Session::flush() {
  if (!sending_.empty() || hasEnded_) {
    return;
  }
  const unsigned char *bytes = nullptr;
  const long count = BIO_get_mem_data(out_, &bytes);
  if (count <= 0) {
    return isOver_ ? finish() : void();
  }
  sending_.assign(bytes, bytes + count);
  static_cast<void>(BIO_reset(out_));
  asio::async_write(socket_, asio::buffer(sending_), [self = shared_from_this()](error_code error, std::size_t) {
    self->sending_.clear();
    error ? self->end() : self->flush();
  });
}

/// Everything is sent: a moment for the client to take it. Closing with bytes unread would take back those that are on
/// their way.
void Session::finish() {
  error_code ignored;
  socket_.shutdown(asio::ip::tcp::socket::shutdown_send, ignored);
  setDeadline(std::min(timer_.expiry(), Clock::now() + kFinishTime));
  receive();
}

void Session::end() {
  if (hasEnded_) {
    return;
  }
  hasEnded_ = true;
  note(Step::failed);
  in_ = out_ = nullptr;
  connection_.reset(); // brings what waits to its end
  timer_.cancel();
  error_code ignored;
  socket_.close(ignored);
}

} // namespace delegated_tls
