// The way to a key holder for programs whose keys it has: connections that are kept, forks, deadlines, a holder that
// hangs.
#pragma once

#include "wire/Stream.h"

#include <atomic>
#include <stdexcept>
#include <string>
#include <string_view>

namespace krHolder {

/// How the texts of Unreachable begin.
inline constexpr std::string_view kUnreachable = "key holder unreachable: ";

/// No answer came. Its text says why, for people: "key holder unreachable: /run/krholder/socket: No such file or
/// directory"; its error is errno, ETIMEDOUT when the answer did not come in time, ECONNRESET when the holder closed
/// the connection, EPROTO when the answer was none of a holder's.
class Unreachable : public std::runtime_error {
public:
  Unreachable(const std::string &text, int error) : std::runtime_error(text), error_(error) {}
  int error() const noexcept { return error_; }

private:
  int error_;
};

struct ClientOptions {
  std::string socket = "/run/krholder/socket";
  std::chrono::milliseconds patience{2000}; ///< for an answer, connecting included
};

/// Any number of threads may ask at once, each over a connection of its own. A forked child asks over connections of
/// its own too: what it inherited is closed unused.
class Client {
public:
  explicit Client(ClientOptions options) : options_(std::move(options)) {}
  ~Client();
  Client(const Client &) = delete;
  Client &operator=(const Client &) = delete;

  const ClientOptions &options() const noexcept { return options_; }

  /// Asks once, and once more on a new connection where the first broke meanwhile: what is asked may be done twice,
  /// never after a deadline. While the holder hangs, whoever asks fails at once, but for one who tries it now and then.
  /// @param request  gets an id and a deadline
  /// @throws Unreachable when no answer came, std::bad_alloc
  Answer ask(Request request);

private:
  struct Attempt {
    Outcome outcome = Outcome::failed;
    int error = 0; ///< errno where connecting failed
    Answer answer = {};
  };

  Descriptor connect(Clock::time_point deadline) const;
  Descriptor takeIdle() noexcept;
  void keep(Descriptor connection) noexcept;
  void closeIdle() noexcept;
  void leaveInherited() noexcept;
  void awaitTurn(Clock::time_point now);
  Attempt attempt(Descriptor connection, const Request &request, Clock::time_point deadline);
  Attempt exchange(Descriptor connection, View frames, int answers, std::uint64_t id, Clock::time_point deadline);

  static constexpr std::size_t kMostIdle = 64;

  const ClientOptions options_;
  std::atomic<std::uint64_t> lastId_{0};
  std::atomic<int> process_{0};                    // whose connections they are
  std::array<std::atomic<int>, kMostIdle> idle_{}; // descriptor + 1: a fork leaves nothing half done, unlike a lock
  std::atomic<Clock::rep> hungUntil_{0};
};

} // namespace krHolder
