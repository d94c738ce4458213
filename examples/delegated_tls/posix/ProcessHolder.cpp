// The key-holder process and the way to it.
//
// One message is one packet of a SOCK_SEQPACKET pair:
//   hello     holder to server   0, error text; or 1, then the public halves, each with its length before it
//   request   server to holder   id, operation, key number, padding, data
//   answer    holder to server   id, success, data
// The holder serves one request after the other and ends when the server's end of the pair is closed.
#include "ProcessHolder.h"

#include "Failure.h"
#include "posix/Packet.h"

#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <csignal>
#include <mutex>
#include <thread>

namespace delegated_tls {
namespace {

using namespace std::chrono_literals;

constexpr auto kStartTimeout = 60s; // keys may have to be generated
constexpr auto kAnswerTimeout = 5s;
constexpr auto kEndTimeout = 1s;

[[noreturn]] void runHolder(Descriptor socket, const KeyMaker &makeKeys) noexcept {
  // The terminal's interrupt is for the server: the holder ends with it.
  static_cast<void>(std::signal(SIGINT, SIG_IGN));
  sigset_t none;
  sigemptyset(&none);
  pthread_sigmask(SIG_SETMASK, &none, nullptr);
  std::vector<PrivateKey> keys;
  try {
    keys = makeKeys();
    PacketWriter hello;
    hello.number(1);
    for (const PrivateKey &key : keys) {
      hello.bytes(key.publicHalf());
    }
    hello.send(socket);
  } catch (const std::exception &failure) {
    PacketWriter hello;
    hello.number(0);
    hello.text(failure.what());
    hello.send(socket);
    _exit(1);
  }
  while (std::optional<PacketReader> request = PacketReader::receive(socket)) {
    const std::uint32_t id = request->number();
    const auto operation = static_cast<Operation>(request->number());
    const std::size_t key = request->number();
    const int padding = static_cast<int>(request->number());
    const Bytes data = request->bytes();
    const std::optional<Bytes> result = key < keys.size() ? keys[key].perform(operation, padding, data) : std::nullopt;
    PacketWriter answer;
    answer.number(id);
    answer.number(result.has_value() ? 1 : 0);
    answer.bytes(result.value_or(Bytes{}));
    answer.send(socket);
  }
  _exit(0);
}

std::string fateOf(const siginfo_t &end) {
  return (end.si_code == CLD_EXITED ? "ended with status " : "was killed by signal ") + std::to_string(end.si_status);
}

/// The holder's process, reaped when it ends. It ends by itself once its socket is closed; one that stands still is
/// killed.
class Child {
public:
  explicit Child(pid_t process) : process_(process), watch_([this] { watch(); }) {}
  ~Child() {
    std::unique_lock lock(mutex_);
    if (!waitForEnd(lock)) {
      kill(process_, SIGKILL);
    }
  }
  Child(const Child &) = delete;
  Child &operator=(const Child &) = delete;
  pid_t process() const { return process_; }

  /// How it ended, or just ends; empty when it goes on.
  std::string fate() const {
    std::unique_lock lock(mutex_);
    waitForEnd(lock);
    return fate_;
  }

private:
  bool waitForEnd(std::unique_lock<std::mutex> &lock) const {
    return ended_.wait_for(lock, kEndTimeout, [this] { return !fate_.empty(); });
  }

  // Until it is noted that the process has ended, its number stays taken: nobody else is killed.
  void watch() {
    siginfo_t end{};
    while (waitid(P_PID, static_cast<id_t>(process_), &end, WEXITED | WNOWAIT) != 0 && errno == EINTR) {
    }
    const std::scoped_lock lock(mutex_);
    waitpid(process_, nullptr, 0);
    fate_ = fateOf(end);
    ended_.notify_all();
  }

  pid_t process_;
  mutable std::mutex mutex_;
  mutable std::condition_variable ended_;
  std::string fate_;
  std::jthread watch_; // uses all of the above
};

class ProcessHolder final : public KeyHolder {
public:
  ProcessHolder(Descriptor socket, pid_t process) : child_(process), socket_(std::move(socket)) {
    setTimeout(socket_, kStartTimeout);
    receiveHello();
    setTimeout(socket_, kAnswerTimeout);
  }

  ProcessHolder(const ProcessHolder &) = delete;
  ProcessHolder &operator=(const ProcessHolder &) = delete;

  std::optional<Bytes> perform(std::size_t key, Operation operation, int padding, const Bytes &data) override {
    const Turn turn(*this);
    const std::uint32_t id = ++lastId_;
    std::optional<PacketReader> answer =
        turn.taken() && request(id, key, operation, padding, data) ? receiveAnswer(id) : std::nullopt;
    isSilent_ = !answer;
    return answer && answer->number() == 1 ? std::optional(answer->bytes()) : std::nullopt;
  }

  const std::vector<Bytes> &publicHalves() const override { return publicHalves_; }
  std::string name() const override { return "process " + std::to_string(child_.process()); }
  std::string trouble() const override {
    if (!isSilent_) {
      return KeyHolder::trouble();
    }
    const std::string fate = child_.fate();
    return "the key holder, " + name() + ", " + (fate.empty() ? "does not answer" : fate);
  }

private:
  // One request at a time. A holder that hangs must not hang the server: who waits for it gives up in time.
  class Turn {
  public:
    explicit Turn(ProcessHolder &holder) : holder_(holder) {
      std::unique_lock lock(holder_.mutex_);
      taken_ = holder_.free_.wait_for(lock, kAnswerTimeout, [this] { return !holder_.busy_; });
      holder_.busy_ = true;
    }
    ~Turn() {
      if (taken_) {
        const std::scoped_lock lock(holder_.mutex_);
        holder_.busy_ = false;
        holder_.free_.notify_one();
      }
    }
    Turn(const Turn &) = delete;
    Turn &operator=(const Turn &) = delete;
    bool taken() const { return taken_; }

  private:
    ProcessHolder &holder_;
    bool taken_;
  };

  bool request(std::uint32_t id, std::size_t key, Operation operation, int padding, const Bytes &data) {
    PacketWriter packet;
    packet.number(id);
    packet.number(static_cast<std::uint32_t>(operation));
    packet.number(static_cast<std::uint32_t>(key));
    packet.number(static_cast<std::uint32_t>(padding));
    packet.bytes(data);
    return packet.send(socket_);
  }

  void receiveHello() {
    std::optional<PacketReader> hello = PacketReader::receive(socket_);
    if (!hello) {
      throw Failure("the key holder did not start");
    }
    if (hello->number() == 0) {
      throw Failure(hello->text());
    }
    while (!hello->atEnd()) {
      publicHalves_.push_back(hello->bytes());
    }
  }

  // Answers to requests that were given up may still arrive before ours.
  std::optional<PacketReader> receiveAnswer(std::uint32_t id) {
    std::optional<PacketReader> answer = PacketReader::receive(socket_);
    while (answer && answer->number() != id) {
      answer = PacketReader::receive(socket_);
    }
    return answer;
  }

  Child child_; // outlives the socket, whose end tells the process to end
  Descriptor socket_;
  std::vector<Bytes> publicHalves_;
  std::mutex mutex_;
  std::condition_variable free_;
  bool busy_ = false;
  std::atomic<std::uint32_t> lastId_{0};
  std::atomic<bool> isSilent_{false};
};

} // namespace

const bool kProcessHolderAvailable = true;

std::unique_ptr<KeyHolder> startProcessHolder(const KeyMaker &makeKeys) {
  int ends[2];
  if (socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends) != 0) {
    throw Failure("no socket pair for the key holder could be made");
  }
  Descriptor ours(ends[0]);
  Descriptor theirs(ends[1]);
  const pid_t process = fork();
  if (process < 0) {
    throw Failure("the key holder's process could not be started");
  }
  if (process == 0) {
    ours.reset();
    runHolder(std::move(theirs), makeKeys);
  }
  theirs.reset();
  return std::make_unique<ProcessHolder>(std::move(ours), process);
}

} // namespace delegated_tls
