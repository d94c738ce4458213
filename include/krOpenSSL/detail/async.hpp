/// @file
/// How krAsync.hpp does it. Nothing here is for callers.
#pragma once

#include <krOpenSSL/detail/stacks.hpp>
#include <krOpenSSL/krAsync.hpp>

#include <openssl/err.h>

#include <boost/context/fiber.hpp>

#include <condition_variable>
#include <exception>
#include <mutex>
#include <optional>
#include <thread>
#include <utility>

namespace krOpenSSL {

namespace detail {

/// One answer, between who gives it and who waits for it.
class Pending {
public:
  Pending() = default;
  ~Pending() { wipe(answer_); }
  Pending(const Pending &) = delete;
  Pending &operator=(const Pending &) = delete;

  /// Gives the answer, or says that there is none.
  void settle(std::optional<std::vector<unsigned char>> answer) noexcept {
    const std::scoped_lock lock(mutex_);
    if (settled_) {
      wipe(answer); // it may be what a key decrypted
      return;
    }
    settled_ = true;
    answer_ = std::move(answer);
    settledNow_.notify_all();
    if (wake_ != nullptr) {
      (*wake_)(); // with the lock, so that whoever cancels knows that no more calls come
    }
  }

  /// Nobody waits any more.
  void abandon() noexcept {
    const std::scoped_lock lock(mutex_);
    settled_ = true;
    wipe(answer_);
    answer_.reset();
    wake_ = nullptr;
  }

  bool settled() noexcept {
    const std::scoped_lock lock(mutex_);
    return settled_;
  }

  /// Names what is called once the answer is there.
  /// @return false when it is there already
  bool setWake(const std::function<void()> &wake) noexcept {
    const std::scoped_lock lock(mutex_);
    wake_ = &wake;
    return !settled_;
  }

  void block() {
    std::unique_lock lock(mutex_);
    settledNow_.wait(lock, [this] { return settled_; });
  }

  std::vector<unsigned char> take() {
    const std::scoped_lock lock(mutex_);
    if (!answer_) {
      throw NoReply("the key holder has given no answer");
    }
    return *std::exchange(answer_, std::nullopt);
  }

private:
  static void wipe(std::optional<std::vector<unsigned char>> &answer) noexcept {
    if (answer) {
      OPENSSL_cleanse(answer->data(), answer->size());
    }
  }

  std::mutex mutex_;
  std::condition_variable settledNow_;
  std::optional<std::vector<unsigned char>> answer_;
  const std::function<void()> *wake_ = nullptr;
  bool settled_ = false;
};

/// What a step calls.
struct StepCall {
  int (*function)(SSL *, void *, int);
  void *buffer;
  int count;
  bool operator==(const StepCall &) const = default;
};

/// A call of OpenSSL on a stack of its own, which may be put aside.
struct Track {
  explicit Track(std::function<void()> toWake) : wake(std::move(toWake)) {}

  /// Boost.Context's name for where stacks come from.
  struct Stacks {
    Track *track;
    boost::context::stack_context allocate() {
      boost::context::stack_context stack = StackPool::only().take();
      track->turns.begin(stack);
      return stack;
    }
    void deallocate(boost::context::stack_context &stack) noexcept { StackPool::only().giveBack(stack); }
  };

  void begin(SSL *ssl, const StepCall &toCall) {
    call = toCall;
    work = boost::context::fiber(std::allocator_arg, Stacks{this}, [this, ssl](boost::context::fiber &&from) {
      turns.atWork(true);
      caller = std::move(from);
      result = call.function(ssl, call.buffer, call.count);
      error = SSL_get_error(ssl, result);
      turns.atLast();
      return std::move(caller);
    });
    thread = std::this_thread::get_id();
  }

  /// Lets the call go on until it has ended or is put aside. The queue is the thread's, and may have other calls'
  /// entries.
  void proceed() {
    ERR_clear_error();
    Track *outer = std::exchange(current, this);
    running = true;
    turns.beforeWork();
    work = std::move(work).resume();
    turns.afterWork();
    running = false;
    current = outer;
    if (!work) {
      turns.end();
    }
  }

  /// Within the call: puts it aside until there is an answer.
  void putAside(const std::shared_ptr<Pending> &answer) {
    if (answer->setWake(wake)) {
      pending = answer;
      turns.beforeCaller();
      caller = std::move(caller).resume();
      turns.atWork(false);
      pending.reset();
    }
  }

  bool waits() const noexcept { return static_cast<bool>(work); }
  bool isOthers() const noexcept { return waits() && thread != std::this_thread::get_id(); }

  static inline thread_local Track *current = nullptr; // whose call the thread is within

  std::function<void()> wake;
  boost::context::fiber work;   // put aside, or empty
  boost::context::fiber caller; // whom it goes back to
  StackTurns turns;
  std::thread::id thread;
  std::shared_ptr<Pending> pending;
  StepCall call{};
  int result = 0;
  int error = 0;
  bool running = false;
  bool cancelled = false;
};

} // namespace detail

inline Reply &Reply::operator=(Reply &&other) noexcept {
  if (this != &other) {
    fail();
    pending_ = std::move(other.pending_);
  }
  return *this;
}

inline void Reply::complete(std::vector<unsigned char> answer) noexcept {
  if (const auto pending = std::exchange(pending_, nullptr)) {
    pending->settle(std::move(answer));
  }
}

inline void Reply::fail() noexcept {
  if (const auto pending = std::exchange(pending_, nullptr)) {
    pending->settle(std::nullopt);
  }
}

inline bool Reply::wanted() const noexcept { return pending_ != nullptr && !pending_->settled(); }

template <class Start> std::vector<unsigned char> awaitReply(Start &&start) {
  detail::Track *track = detail::Track::current;
  if (track != nullptr && (track->cancelled || std::current_exception() != nullptr || std::uncaught_exceptions() > 0)) {
    throw NoReply(track->cancelled ? "the connection was cancelled" : "an exception is being handled");
  }
  auto pending = std::make_shared<detail::Pending>();
  std::forward<Start>(start)(Reply(pending));
  if (track != nullptr) {
    if (track->cancelled) { // within start
      pending->abandon();
    }
    track->putAside(pending);
  } else {
    pending->block();
  }
  return pending->take();
}

inline AsyncConnection::AsyncConnection(SSLPtr ssl, std::function<void()> wake)
    : ssl_(std::move(ssl)), track_(std::make_unique<detail::Track>(std::move(wake))) {
  if (ssl_ == nullptr || !track_->wake) {
    throw std::invalid_argument("a connection and what wakes it are needed");
  }
}

inline AsyncConnection::~AsyncConnection() {
  cancel();
  if (track_->waits()) {
    static_cast<void>(ssl_.release());
    static_cast<void>(track_.release());
  }
}

inline AsyncConnection::Step AsyncConnection::step(int (*function)(SSL *, void *, int), void *buffer, int count) {
  const detail::StepCall call{function, buffer, count};
  if (track_->running) {
    throw std::logic_error("the connection is within a step");
  }
  if (last_ == Step::failed) {
    return last_;
  }
  if (!track_->waits()) {
    track_->begin(ssl_.get(), call);
  } else if (track_->isOthers()) {
    throw std::logic_error("the connection waits on another thread");
  } else if (call != track_->call) {
    throw std::logic_error("another step of the connection waits");
  } else if (!track_->pending->settled()) {
    return last_;
  }
  track_->proceed();
  return last_ = track_->waits() ? Step::wantReply : outcome();
}

inline int AsyncConnection::transfer(int (*function)(SSL *, void *, int), void *buffer, int count) {
  if (count < 1) {
    throw std::invalid_argument("there is nothing to read or write");
  }
  return step(function, buffer, count) == Step::done && track_->result > 0 ? track_->result : 0;
}

/// How the call that has ended did.
inline AsyncConnection::Step AsyncConnection::outcome() const noexcept {
  if (track_->cancelled) { // within the call
    return Step::failed;
  }
  switch (track_->error) {
  case SSL_ERROR_NONE:
    return Step::done;
  case SSL_ERROR_ZERO_RETURN: // before the handshake's end it is no orderly one
    return SSL_is_init_finished(ssl_.get()) != 0 ? Step::done : Step::failed;
  case SSL_ERROR_WANT_READ:
    return Step::wantRead;
  case SSL_ERROR_WANT_WRITE:
    return Step::wantWrite;
  default:
    return Step::failed;
  }
}

inline AsyncConnection::Step AsyncConnection::handshake() {
  return step([](SSL *ssl, void *, int) { return SSL_do_handshake(ssl); }, nullptr, 0);
}

inline int AsyncConnection::read(void *to, int room) {
  return transfer([](SSL *ssl, void *buffer, int count) { return SSL_read(ssl, buffer, count); }, to, room);
}

inline int AsyncConnection::write(const void *from, int count) {
  return transfer([](SSL *ssl, void *buffer, int size) { return SSL_write(ssl, buffer, size); },
                  const_cast<void *>(from), count);
}

inline void AsyncConnection::cancel() noexcept {
  last_ = Step::failed;
  track_->cancelled = true;
  if (track_->waits()) {
    track_->pending->abandon();
  }
  if (track_->isOthers()) {
    return;
  }
  BIO *nowhere = BIO_new(BIO_s_null()); // without memory none: OpenSSL finds its transport missing
  SSL_set_bio(ssl_.get(), nowhere, nowhere);
  if (track_->waits()) {
    track_->proceed();
    ERR_clear_error();
  }
}

} // namespace krOpenSSL
