// The way to the key holder's process: requests with numbers, answers in any order.
//
// One thread does the reading and writing. What was asked for while it wrote goes out together. When the holder ends,
// what it has not answered fails, and so does what is asked for until there is another.
#include "ProcessHolder.h"

#include "Failure.h"
#include "posix/Frame.h"
#include "posix/Nursery.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <map>
#include <mutex>
#include <thread>

namespace delegated_tls {
namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

constexpr auto kStartTimeout = 60s; // keys may have to be generated
constexpr auto kAnswerTimeout = 5s;
constexpr auto kFateTimeout = 1s;
constexpr auto kRestartPause = 1s;
constexpr std::size_t kMostUnsentBytes = std::size_t{4} << 20U;

/// What nobody else has to know about: who was asked for what.
class Requests {
public:
  std::uint32_t add(KeyHolder::Answer answer) {
    const std::uint32_t id = ++lastId_;
    waiting_.emplace(id, Waiting{std::move(answer), Clock::now() + kAnswerTimeout});
    return id;
  }
  KeyHolder::Answer take(std::uint32_t id) {
    const auto found = waiting_.extract(id);
    return found ? std::move(found.mapped().answer) : nullptr; // too late, or nobody's
  }
  /// Those whose time is up; all with the end of time.
  std::vector<KeyHolder::Answer> takeOverdue(Deadline now) {
    std::vector<KeyHolder::Answer> overdue;
    while (!waiting_.empty() && waiting_.begin()->second.deadline <= now) { // numbers rise as deadlines do
      overdue.push_back(std::move(waiting_.begin()->second.answer));
      waiting_.erase(waiting_.begin());
    }
    return overdue;
  }
  Deadline firstDeadline() const { return waiting_.empty() ? Deadline::max() : waiting_.begin()->second.deadline; }

private:
  struct Waiting {
    KeyHolder::Answer answer;
    Deadline deadline;
  };
  std::map<std::uint32_t, Waiting> waiting_;
  std::uint32_t lastId_ = 0;
};

void failAll(const std::vector<KeyHolder::Answer> &answers) {
  for (const KeyHolder::Answer &answer : answers) {
    answer(std::nullopt);
  }
}

class ProcessHolder final : public KeyHolder {
public:
  explicit ProcessHolder(const KeyMaker &makeKeys) : nursery_(makeKeys), bell_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
    NurseryNews news = nursery_.next(Clock::now() + kStartTimeout);
    if (news.kind != NurseryNews::Kind::keys) {
      throw Failure(news.text.empty() ? "the key holder did not start" : news.text);
    }
    publicHalves_ = std::move(news.publicHalves);
    nursery_.start();
    hear(nursery_.next(Clock::now() + kStartTimeout));
    if (!isUp_) {
      throw Failure("the key holder did not start");
    }
    thread_ = std::jthread([this] { run(); });
  }
  ~ProcessHolder() override {
    {
      const std::scoped_lock lock(mutex_);
      stops_ = true;
    }
    ring();
    thread_.join();
    failAll(requests_.takeOverdue(Deadline::max()));
  }
  ProcessHolder(const ProcessHolder &) = delete;
  ProcessHolder &operator=(const ProcessHolder &) = delete;

  void ask(std::size_t key, Operation operation, int padding, const Bytes &data, Answer answer) override {
    {
      const std::scoped_lock lock(mutex_);
      if (isUp_ && unsent_.size() < kMostUnsentBytes) {
        const bool first = unsent_.empty();
        FrameWriter()
            .number(requests_.add(std::move(answer)))
            .number(static_cast<std::uint32_t>(operation))
            .number(static_cast<std::uint32_t>(key))
            .number(static_cast<std::uint32_t>(padding))
            .bytes(data)
            .appendTo(unsent_);
        if (first) {
          ring();
        }
        return;
      }
    }
    answer(std::nullopt);
  }

  const std::vector<Bytes> &publicHalves() const override { return publicHalves_; }
  std::string name() const override {
    const std::scoped_lock lock(mutex_);
    return "process " + std::to_string(process_);
  }
  std::string trouble() const override {
    const std::scoped_lock lock(mutex_);
    return "the key holder, process " + std::to_string(process_) + ", " + (fate_.empty() ? "refused" : fate_);
  }

private:
  void ring() const { eventfd_write(bell_.get(), 1); }

  void run() {
    while (turn()) {
    }
  }

  /// Waits for whatever comes first and sees to it.
  /// @return false once this object ends
  bool turn() {
    std::array<pollfd, 3> wanted{pollfd{bell_.get(), POLLIN, 0},
                                 pollfd{isAlone_ ? -1 : nursery_.descriptor(), POLLIN, 0},
                                 pollfd{socket_.get(), POLLIN, 0}}; // a negative descriptor is passed over
    Deadline until = restart_;
    {
      const std::scoped_lock lock(mutex_);
      if (stops_) {
        return false;
      }
      until = std::min(until, requests_.firstDeadline());
      wanted[2].events = static_cast<short>(sending_.empty() && unsent_.empty() ? POLLIN : POLLIN | POLLOUT);
    }
    const auto left = until == Deadline::max()
                          ? -1
                          : std::max<std::chrono::milliseconds::rep>(
                                0, std::chrono::ceil<std::chrono::milliseconds>(until - Clock::now()).count());
    poll(wanted.data(), wanted.size(), static_cast<int>(left));
    eventfd_t rung = 0;
    eventfd_read(bell_.get(), &rung);
    if (wanted[1].revents != 0) {
      hear(nursery_.next(Clock::now() + kFateTimeout)); // it is there
    }
    if ((wanted[2].revents & POLLOUT) != 0 && socket_) {
      write();
    }
    if ((wanted[2].revents & (POLLIN | POLLHUP | POLLERR)) != 0 && socket_) {
      read();
    }
    timesUp();
    return true;
  }

  void write() {
    if (sending_.empty()) {
      const std::scoped_lock lock(mutex_);
      sending_.swap(unsent_);
    }
    const ssize_t sent = send(socket_.get(), sending_.data(), sending_.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
    sending_.erase(sending_.begin(), sending_.begin() + std::max<ssize_t>(0, sent));
  }

  void read() {
    const ssize_t got = recv(socket_.get(), part_.data(), part_.size(), MSG_DONTWAIT);
    if (got < 0 && (errno == EAGAIN || errno == EINTR)) {
      return;
    }
    if (got <= 0) {
      socket_.reset();
      const NurseryNews news = nursery_.next(Clock::now() + kFateTimeout);
      return ended(news.kind == NurseryNews::Kind::ended ? news.text : "has gone");
    }
    answers_.append({part_.data(), static_cast<std::size_t>(got)});
    while (std::optional<FrameReader> frame = answers_.next()) {
      deliver(*frame);
    }
  }

  void deliver(FrameReader &frame) {
    Answer answer;
    {
      const std::scoped_lock lock(mutex_);
      answer = requests_.take(frame.number());
      fate_.clear();
    }
    if (answer) {
      answer(frame.number() == 1 ? std::optional(frame.bytes()) : std::nullopt);
    }
  }

  void hear(NurseryNews news) {
    switch (news.kind) {
    case NurseryNews::Kind::started: {
      const std::scoped_lock lock(mutex_);
      socket_ = std::move(news.socket);
      process_ = news.process;
      isUp_ = static_cast<bool>(socket_);
      fate_.clear();
      return;
    }
    case NurseryNews::Kind::ended:
      return news.process == process_ ? ended(news.text) : void();
    case NurseryNews::Kind::failure: // the nursery itself: there will be no other holder
      ended("has gone");
      isAlone_ = true;
      restart_ = Deadline::max();
      return;
    default:
      return;
    }
  }

  void ended(const std::string &fate) {
    std::vector<Answer> failed;
    {
      const std::scoped_lock lock(mutex_);
      isUp_ = false;
      fate_ = fate;
      socket_.reset();
      unsent_.clear();
      failed = requests_.takeOverdue(Deadline::max());
    }
    sending_.clear();
    answers_ = FrameStream();
    restart_ = Clock::now() + kRestartPause;
    failAll(failed);
  }

  void timesUp() {
    std::vector<Answer> overdue;
    const Deadline now = Clock::now();
    {
      const std::scoped_lock lock(mutex_);
      overdue = requests_.takeOverdue(now);
      if (!overdue.empty()) {
        fate_ = "does not answer";
      }
    }
    failAll(overdue);
    if (restart_ <= now) {
      restart_ = Deadline::max();
      nursery_.start();
    }
  }

  const Nursery nursery_;
  const Descriptor bell_; // rings when there is something to send
  std::vector<Bytes> publicHalves_;

  // The thread's.
  Descriptor socket_;
  Bytes sending_;
  FrameStream answers_;
  std::array<unsigned char, 65536> part_{};
  Deadline restart_ = Deadline::max();
  bool isAlone_ = false; // without the nursery

  mutable std::mutex mutex_; // guards what follows
  Requests requests_;
  Bytes unsent_;
  std::string fate_;
  pid_t process_ = 0;
  bool isUp_ = false;
  bool stops_ = false;

  std::jthread thread_; // uses all of the above
};

} // namespace

const bool kProcessHolderAvailable = true;

std::unique_ptr<KeyHolder> startProcessHolder(const KeyMaker &makeKeys) {
  return std::make_unique<ProcessHolder>(makeKeys);
}

} // namespace delegated_tls
