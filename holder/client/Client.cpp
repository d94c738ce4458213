// The way to a key holder.
#include "Client.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace krHolder {

namespace {

// How long a holder that did not answer is left alone.
constexpr std::chrono::milliseconds kRest{250};

[[noreturn]] void fail(const std::string &socket, const std::string &why, int error) {
  throw Unreachable(std::string(kUnreachable) + socket + ": " + why, error);
}

// Connecting waits as long as sending may: a holder that starts anew finds its callers in the queue.
void limitWaiting(const Descriptor &socket, Clock::duration left) {
  const auto all = std::chrono::duration_cast<std::chrono::microseconds>(left).count();
  const std::int64_t microseconds = std::max<std::int64_t>(all, 1); // 0 would be no limit
  constexpr std::int64_t kSecond = 1'000'000;
  const timeval limit{microseconds / kSecond, microseconds % kSecond};
  setsockopt(socket.get(), SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof limit);
}

// A holder speaks when it is asked: what there is to hear from one that was not is that it ended.
bool isGone(const Descriptor &connection) noexcept {
  pollfd there{connection.get(), POLLIN, 0};
  return poll(&there, 1, 0) != 0;
}

// A refusal of whatever comes over this connection.
bool isOfConnection(const Answer &answer) { return answer.id == 0 && answer.status != Status::ok; }

[[noreturn]] void fail(const std::string &socket, Outcome outcome, int error) {
  switch (outcome) {
  case Outcome::timedOut:
    fail(socket, "no answer in time", ETIMEDOUT);
  case Outcome::malformed:
    fail(socket, "the answer is none of a key holder's", EPROTO);
  case Outcome::closed:
    fail(socket, "it closed the connection", ECONNRESET);
  default:
    fail(socket, error != 0 ? std::generic_category().message(error) : "the connection failed", error);
  }
}

} // namespace

Client::~Client() { closeIdle(); }

Answer Client::ask(Request request) {
  leaveInherited();
  const auto now = Clock::now();
  const auto deadline = now + options_.patience;
  awaitTurn(now);
  request.id = ++lastId_;
  request.deadline = static_cast<std::uint32_t>(options_.patience.count());
  Attempt made = attempt(takeIdle(), request, deadline);
  if (made.outcome == Outcome::closed) {
    made = attempt(Descriptor(), request, deadline);
  }
  const bool hangs = made.outcome == Outcome::timedOut;
  hungUntil_ = hangs ? (Clock::now() + kRest).time_since_epoch().count() : 0;
  if (made.outcome != Outcome::done) {
    fail(options_.socket, made.outcome, made.error);
  }
  return std::move(made.answer);
}

// One of those who come when the rest is over tries it; the others rest on until that one knows.
void Client::awaitTurn(Clock::time_point now) {
  Clock::rep until = hungUntil_.load();
  if (until == 0) {
    return;
  }
  const Clock::rep next = (now + options_.patience).time_since_epoch().count();
  if (now.time_since_epoch().count() < until || !hungUntil_.compare_exchange_strong(until, next)) {
    fail(options_.socket, "it did not answer others in time", ETIMEDOUT);
  }
}

Client::Attempt Client::attempt(Descriptor connection, const Request &request, Clock::time_point deadline) {
  const Bytes asked = encode(request);
  if (connection) {
    return exchange(std::move(connection), asked, 1, request.id, deadline);
  }
  connection = connect(deadline);
  if (!connection) {
    return {errno == EAGAIN ? Outcome::timedOut : Outcome::failed, errno};
  }
  Bytes frames = encode(Request{Operation::hello, request.id, request.deadline, {}, {}, Hello{}});
  frames.insert(frames.end(), asked.begin(), asked.end());
  return exchange(std::move(connection), frames, 2, request.id, deadline);
}

// The last answer is the request's; a refusal before it, of the greeting, is too, and ends the connection.
Client::Attempt Client::exchange(Descriptor connection, View frames, int answers, std::uint64_t id,
                                 Clock::time_point deadline) {
  Attempt made{send(connection, frames, deadline)};
  if (made.outcome == Outcome::closed) {
    made.outcome = Outcome::done; // an answer may have come before
  }
  Incoming incoming(connection);
  Bytes payload;
  while (made.outcome == Outcome::done && answers-- > 0) {
    made.outcome = incoming.next(payload, deadline);
    if (made.outcome != Outcome::done) {
      return made;
    }
    auto answer = decodeAnswer(payload);
    if (!answer || (answer->id != id && !isOfConnection(*answer))) {
      return {Outcome::malformed};
    }
    const bool last = isOfConnection(*answer) || (answers > 0 && answer->status != Status::ok);
    made.answer = std::move(*answer);
    if (last) {
      return made;
    }
  }
  if (made.outcome == Outcome::done && incoming.empty()) {
    keep(std::move(connection));
  }
  return made;
}

// None: errno tells why, EAGAIN that the queue was full until the deadline.
Descriptor Client::connect(Clock::time_point deadline) const {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  if (options_.socket.size() >= sizeof address.sun_path) {
    errno = ENAMETOOLONG;
    return Descriptor();
  }
  std::memcpy(address.sun_path, options_.socket.data(), options_.socket.size());
  Descriptor connection = openSocket();
  if (!connection) {
    return connection;
  }
  limitWaiting(connection, deadline - Clock::now());
  while (::connect(connection.get(), reinterpret_cast<const sockaddr *>(&address), sizeof address) != 0) {
    if (errno != EINTR) {
      const int error = errno;
      connection = Descriptor();
      errno = error;
      break;
    }
  }
  return connection;
}

Descriptor Client::takeIdle() noexcept {
  for (auto &slot : idle_) {
    if (slot.load() != 0) {
      Descriptor taken(slot.exchange(0) - 1);
      if (taken && !isGone(taken)) {
        return taken;
      }
    }
  }
  return Descriptor();
}

void Client::keep(Descriptor connection) noexcept {
  for (auto &slot : idle_) {
    int free = 0;
    if (slot.compare_exchange_strong(free, connection.get() + 1)) {
      connection.release();
      return;
    }
  }
}

void Client::closeIdle() noexcept {
  for (auto &slot : idle_) {
    const Descriptor closed(slot.exchange(0) - 1);
  }
}

// First closed, then said to be own: no other thread takes one that the parent uses.
void Client::leaveInherited() noexcept {
  const int own = getpid();
  if (process_.load() != own) {
    closeIdle();
    process_ = own;
  }
}

} // namespace krHolder
