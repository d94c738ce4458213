/// @file
/// Answers that come later: a handshake that waits for its key holder is put aside, and its thread goes on with others.
/// Header only, over OpenSSL and Boost.Context, with which a program that includes it is linked; it adds no symbol to
/// the library.
///
///     AsyncConnection connection(std::move(ssl), [&] { loop.post(again); }); // again: calls handshake() once more
///     switch (connection.handshake()) {
///     case AsyncConnection::Step::wantReply: break;  // until wake says that the answer is there
///     ...
///     // The signer of a DelegatedKey, or a registered callback:
///     const auto answer = awaitReply([&](Reply reply) { holder.send(request, std::move(reply)); });
///     // On whatever thread the holder's answer is read:
///     reply.complete(bytes);
///
/// A connection's calls of OpenSSL run on a stack of their own of 128 KiB with a guard page, which they give back
/// unless they wait for an answer. Any callback of OpenSSL's that runs within a step may wait with awaitReply; one that
/// asks OpenSSL to be called again instead (a certificate callback's -1, SSL_CLIENT_HELLO_RETRY) ends the connection.
/// So what they call shares the thread with other handshakes between its call of awaitReply and the answer:
/// `thread_local` objects, `errno` and OpenSSL's error queue may have changed then, no lock is to be held over it, and
/// it throws within a `catch` block and within a destructor that an exception runs.
///
/// No lock that a wake function takes may be held over a step or a cancel.
///
/// awaitReply knows of a step only within the same loaded module: a program and a shared object, or DLL, that both
/// include this header wait each for its own connections.
///
/// A child process made by fork has none of the answers: it must not touch connections that wait, nor let go of them.
/// Connections must not be in SSL_MODE_ASYNC.
#pragma once

#include <krOpenSSL/krHandles.h>

#include <functional>
#include <memory>
#include <stdexcept>
#include <vector>

namespace krOpenSSL {

/// What awaitReply throws when no answer comes. In a DelegatedKey's signer it makes the signature fail; a registered
/// callback has to catch it.
class NoReply : public std::runtime_error {
public:
  using std::runtime_error::runtime_error;
};

namespace detail {
class Pending;
struct Track;
} // namespace detail

/// Calls @p start with a Reply, which is to send the request and return, and gives the answer when it is there. What
/// @p start throws passes on. Called from within a step of an AsyncConnection it puts that aside; elsewhere it blocks.
///
/// @throws NoReply when the answer fails or the connection is cancelled, and within a connection's step also where an
///         exception is being handled, since stacks cannot be changed there
template <class Start> std::vector<unsigned char> awaitReply(Start &&start);

/// The answer that somebody waits for. It is given once; the first call decides, and later ones do nothing. An object
/// that goes without having answered has failed.
///
/// @note Safe from any thread, but one object serves one at a time.
class Reply {
public:
  Reply(Reply &&) noexcept = default;       ///< what was moved from answers no more
  Reply &operator=(Reply &&other) noexcept; ///< what was held before has failed
  ~Reply() { fail(); }

  /// Gives the answer.
  void complete(std::vector<unsigned char> answer) noexcept;

  /// Says that there is none.
  void fail() noexcept;

  /// Whether somebody still waits: false once it is answered, and once the connection was cancelled.
  bool wanted() const noexcept;

private:
  template <class Start> friend std::vector<unsigned char> awaitReply(Start &&start);
  explicit Reply(std::shared_ptr<detail::Pending> pending) noexcept : pending_(std::move(pending)) {}

  std::shared_ptr<detail::Pending> pending_;
};

/// A connection whose steps may wait for answers. It belongs to the thread of its first step: one of another thread
/// throws std::logic_error while an answer is waited for, as does a step other than the one that waits, and one within
/// another.
///
/// Steps clear the thread's error queue before they begin. After `failed` it has OpenSSL's reasons, and further steps
/// do nothing.
class AsyncConnection {
public:
  /// How a step ended.
  enum class Step {
    done,      ///< as was asked for
    wantRead,  ///< call again when the transport has bytes
    wantWrite, ///< call again when the transport takes bytes
    wantReply, ///< call again when wake was called
    failed     ///< the connection is over
  };

  /// @param ssl   the connection, with its transport and its state (SSL_set_accept_state or SSL_set_connect_state)
  /// @param wake  called once for each wantReply, when the answer is there, on the thread that gives it and never after
  ///              this object's end. It is to note that and return: it must neither throw nor call the object
  /// @throws std::invalid_argument for a null connection or an empty function
  AsyncConnection(SSLPtr ssl, std::function<void()> wake);

  /// Cancels. A step that waits on another thread cannot be brought to its end there: its memory is then left alone.
  /// An object must not end within its own step.
  ~AsyncConnection();
  AsyncConnection(const AsyncConnection &) = delete;
  AsyncConnection &operator=(const AsyncConnection &) = delete;

  /// One step of the handshake.
  /// @throws std::bad_alloc before anything is done when there is no memory for a stack
  Step handshake();

  /// Reads, as SSL_read does: a signature may be asked for within (renegotiation, authentication after the handshake).
  /// @param to    stays as it is, and is given again, until the step is done
  /// @param room  bytes, at least 1, likewise
  /// @return the bytes read; 0 otherwise: last() says why, `done` for the peer's close_notify
  /// @throws std::invalid_argument where there is no room
  int read(void *to, int room);

  /// Writes, as SSL_write does.
  /// @param from   as for read
  /// @param count  bytes, at least 1, likewise
  /// @return the bytes written; 0 otherwise, last() says why
  /// @throws std::invalid_argument where there is nothing to write
  int write(const void *from, int count);

  /// How the last step ended.
  Step last() const noexcept { return last_; }

  /// Ends the connection: an answer that is waited for has failed, the transport is let go, and what was in progress
  /// comes to its end without it. Late answers are dropped.
  void cancel() noexcept;

  /// The connection.
  SSL *get() const noexcept { return ssl_.get(); }

private:
  Step step(int (*function)(SSL *, void *, int), void *buffer, int count);
  Step outcome() const noexcept;
  int transfer(int (*function)(SSL *, void *, int), void *buffer, int count);

  SSLPtr ssl_;
  std::unique_ptr<detail::Track> track_;
  Step last_ = Step::wantWrite;
};

} // namespace krOpenSSL

#include <krOpenSSL/detail/async.hpp>
