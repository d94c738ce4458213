// The nursery's own side, and the server's. What passes between them are packets of a SOCK_SEQPACKET pair; a holder's
// socket comes along with its packet.
#include "posix/Nursery.h"

#include "Failure.h"
#include "posix/Frame.h"
#include "posix/HolderLoop.h"

#include <poll.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <cstring>
#include <thread>

namespace delegated_tls {
namespace {

using namespace std::chrono_literals;

constexpr std::size_t kMostNewsBytes = 65536;
constexpr auto kEndTimeout = 1s;

struct SocketPair {
  Descriptor ours, theirs;
};

SocketPair socketPair(int type) {
  std::array<int, 2> ends{};
  if (socketpair(AF_UNIX, type | SOCK_CLOEXEC, 0, ends.data()) != 0) {
    throw Failure("no socket pair for the key holder could be made");
  }
  return {Descriptor(ends[0]), Descriptor(ends[1])};
}

/// Room for one descriptor beside a packet.
struct Passenger {
  alignas(cmsghdr) std::array<char, CMSG_SPACE(sizeof(int))> room{};
};

void tell(const Descriptor &control, const FrameWriter &news, const Descriptor &along = Descriptor()) {
  const Bytes &frame = news.frame();
  iovec part{const_cast<unsigned char *>(frame.data()), frame.size()};
  msghdr message{};
  message.msg_iov = &part;
  message.msg_iovlen = 1;
  Passenger passenger;
  if (along) {
    message.msg_control = passenger.room.data();
    message.msg_controllen = passenger.room.size();
    cmsghdr *header = CMSG_FIRSTHDR(&message);
    header->cmsg_level = SOL_SOCKET;
    header->cmsg_type = SCM_RIGHTS;
    header->cmsg_len = CMSG_LEN(sizeof(int));
    const int descriptor = along.get();
    std::memcpy(CMSG_DATA(header), &descriptor, sizeof descriptor);
  }
  sendmsg(control.get(), &message, MSG_NOSIGNAL);
}

FrameWriter newsOf(NurseryNews::Kind kind) {
  FrameWriter news;
  news.number(static_cast<std::uint32_t>(kind));
  return news;
}

std::string fateOf(int status) {
  return WIFSIGNALED(status) ? "was killed by signal " + std::to_string(WTERMSIG(status))
                             : "ended with status " + std::to_string(WEXITSTATUS(status));
}

/// In the nursery's process.
class Care {
public:
  Care(Descriptor control, std::vector<PrivateKey> keys) : control_(std::move(control)), keys_(std::move(keys)) {}

  [[noreturn]] void run() {
    // An ended child interrupts the wait, and nothing else.
    struct sigaction action {};
    action.sa_handler = [](int) {};
    sigaction(SIGCHLD, &action, nullptr);
    sigset_t child;
    sigemptyset(&child);
    sigaddset(&child, SIGCHLD);
    sigset_t none;
    sigemptyset(&none);
    pthread_sigmask(SIG_SETMASK, &child, nullptr);
    for (;;) {
      reap();
      pollfd wanted{control_.get(), POLLIN, 0};
      if (ppoll(&wanted, 1, nullptr, &none) > 0) {
        obey();
      }
    }
  }

private:
  void reap() {
    int status = 0;
    for (pid_t ended = 0; (ended = waitpid(-1, &status, WNOHANG)) > 0;) {
      holder_ = ended == holder_ ? 0 : holder_;
      tell(control_, newsOf(NurseryNews::Kind::ended).number(static_cast<std::uint32_t>(ended)).text(fateOf(status)));
    }
  }

  // A byte is a wish for a holder, the end of the socket the end of all.
  void obey() {
    char wish = 0;
    const ssize_t got = recv(control_.get(), &wish, 1, MSG_DONTWAIT);
    if (got < 0) {
      return;
    }
    if (got == 0) {
      if (holder_ != 0) {
        kill(holder_, SIGKILL);
      }
      _exit(0);
    }
    SocketPair sockets = socketPair(SOCK_STREAM);
    holder_ = fork();
    if (holder_ == 0) {
      control_.reset();
      sockets.ours.reset();
      runHolder(sockets.theirs, keys_);
    }
    tell(control_, newsOf(NurseryNews::Kind::started).number(static_cast<std::uint32_t>(holder_)), sockets.ours);
  }

  Descriptor control_;
  std::vector<PrivateKey> keys_;
  pid_t holder_ = 0;
};

[[noreturn]] void runNursery(Descriptor control, const KeyMaker &makeKeys) noexcept {
  // The terminal's interrupt is for the server: the holders end with it.
  static_cast<void>(std::signal(SIGINT, SIG_IGN));
  sigset_t none;
  sigemptyset(&none);
  pthread_sigmask(SIG_SETMASK, &none, nullptr);
  try {
    std::vector<PrivateKey> keys = makeKeys();
    FrameWriter news = newsOf(NurseryNews::Kind::keys);
    for (const PrivateKey &key : keys) {
      news.bytes(key.publicHalf());
    }
    tell(control, news);
    Care(std::move(control), std::move(keys)).run();
  } catch (const std::exception &failure) {
    tell(control, newsOf(NurseryNews::Kind::failure).text(failure.what()));
  }
  _exit(1);
}

Descriptor passengerOf(msghdr &message) {
  const cmsghdr *header = CMSG_FIRSTHDR(&message);
  if (header == nullptr || header->cmsg_type != SCM_RIGHTS) {
    return {};
  }
  int descriptor = -1;
  std::memcpy(&descriptor, CMSG_DATA(header), sizeof descriptor);
  return Descriptor(descriptor);
}

} // namespace

Nursery::Nursery(const KeyMaker &makeKeys) {
  SocketPair sockets = socketPair(SOCK_SEQPACKET);
  process_ = fork();
  if (process_ < 0) {
    throw Failure("the key holder's process could not be started");
  }
  if (process_ == 0) {
    sockets.ours.reset();
    runNursery(std::move(sockets.theirs), makeKeys);
  }
  control_ = std::move(sockets.ours);
}

Nursery::~Nursery() {
  control_.reset();
  const Deadline deadline = std::chrono::steady_clock::now() + kEndTimeout;
  while (waitpid(process_, nullptr, WNOHANG) == 0) {
    if (std::chrono::steady_clock::now() > deadline) {
      kill(process_, SIGKILL);
    }
    std::this_thread::sleep_for(1ms);
  }
}

void Nursery::start() const { ::send(control_.get(), "+", 1, MSG_NOSIGNAL); }

NurseryNews Nursery::next(Deadline deadline) const {
  NurseryNews news;
  if (!waitFor(control_, Wanted::toRead, deadline)) {
    return news;
  }
  Bytes frame(kMostNewsBytes);
  iovec part{frame.data(), frame.size()};
  Passenger passenger;
  msghdr message{};
  message.msg_iov = &part;
  message.msg_iovlen = 1;
  message.msg_control = passenger.room.data();
  message.msg_controllen = passenger.room.size();
  const ssize_t got = recvmsg(control_.get(), &message, MSG_CMSG_CLOEXEC);
  if (got <= 0) {
    news.kind = NurseryNews::Kind::failure;
    news.text = "the key holder did not start";
    return news;
  }
  frame.resize(static_cast<std::size_t>(got));
  FrameReader reader(std::move(frame));
  news.kind = static_cast<NurseryNews::Kind>(reader.number());
  news.socket = passengerOf(message);
  if (news.kind == NurseryNews::Kind::keys) {
    while (!reader.atEnd()) {
      news.publicHalves.push_back(reader.bytes());
    }
    return news;
  }
  news.process = news.kind == NurseryNews::Kind::failure ? 0 : static_cast<pid_t>(reader.number());
  news.text = reader.text();
  return news;
}

} // namespace delegated_tls
