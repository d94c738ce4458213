// Event loops, a thread for each: the first accepts, and deals out the connections.
#include "Failure.h"
#include "StopSignals.h"
#include "loop/Session.h"

#include <sys/resource.h>

#include <deque>
#include <thread>

namespace delegated_tls {
namespace {

using namespace krOpenSSL;
using asio::error_code;
using asio::ip::tcp;

constexpr std::size_t kMostWaiting = 4096; // handshakes with a stack of their own
constexpr std::chrono::milliseconds kAcceptPause{10};

/// The handshake is put aside until the holder has answered.
std::optional<Bytes> putAside(HeldKey &key, Operation operation, int padding, const Bytes &data) {
  try {
    const auto answer = awaitReply([&](Reply reply) {
      const auto held = std::make_shared<Reply>(std::move(reply));
      key.ask(operation, padding, data, [held](const std::optional<Bytes> &result) {
        result ? held->complete({result->begin(), result->end()}) : held->fail();
      });
    });
    return Bytes(answer.begin(), answer.end());
  } catch (const NoReply &) {
    return std::nullopt;
  }
}

/// As many connections as the system lets this process have.
void raiseDescriptorLimit() {
  rlimit limit{};
  if (getrlimit(RLIMIT_NOFILE, &limit) == 0) {
    limit.rlim_cur = limit.rlim_max;
    setrlimit(RLIMIT_NOFILE, &limit);
  }
}

class LoopServer {
public:
  LoopServer(Service &service, const ServeOptions &options)
      : loops_(makeLoops(service, std::max(1U, options.threads))), acceptor_(loops_.front()->io),
        pause_(loops_.front()->io) {
    const tcp::endpoint address(asio::ip::address_v4::loopback(), options.port);
    try {
      acceptor_.open(address.protocol());
      acceptor_.set_option(tcp::acceptor::reuse_address(true));
      acceptor_.bind(address);
      acceptor_.listen();
    } catch (const std::system_error &error) {
      throw Failure("cannot listen on 127.0.0.1 port " + std::to_string(options.port) + ": " + error.code().message());
    }
  }

  std::uint16_t port() const { return acceptor_.local_endpoint().port(); }

  void run(const StopSignals &stopSignals) {
    std::deque<asio::executor_work_guard<asio::io_context::executor_type>> guards;
    std::deque<std::jthread> threads;
    accept();
    for (const auto &loop : loops_) {
      guards.emplace_back(loop->io.get_executor());
      threads.emplace_back([&io = loop->io] { io.run(); });
    }
    stopSignals.wait();
    asio::post(loops_.front()->io, [this] {
      error_code ignored;
      acceptor_.close(ignored);
      pause_.cancel();
    });
    for (const auto &loop : loops_) {
      asio::post(loop->io, [&loop] { stopSessions(*loop); });
    }
    guards.clear(); // the loops end with their last session
  }

private:
  using Loops = std::vector<std::unique_ptr<Loop>>;

  static Loops makeLoops(Service &service, unsigned count) {
    Loops loops;
    for (unsigned i = 0; i < count; ++i) {
      loops.push_back(std::make_unique<Loop>(service));
    }
    return loops;
  }

  static void stopSessions(Loop &loop) {
    loop.stops = true;
    for (Session *session : std::vector<Session *>(loop.sessions.begin(), loop.sessions.end())) {
      session->shared_from_this()->stop();
    }
  }

  void accept() {
    if (!acceptor_.is_open()) {
      return;
    }
    std::size_t waiting = 0;
    for (const auto &loop : loops_) {
      waiting += loop->waiting;
    }
    if (waiting >= kMostWaiting) {
      return acceptLater();
    }
    Loop &loop = *loops_[next_++ % loops_.size()];
    acceptor_.async_accept(loop.io, [this, &loop](error_code error, tcp::socket socket) {
      if (error) { // one connection's, or the moment's: no descriptors
        return acceptLater();
      }
      asio::post(loop.io, [&loop, held = std::make_shared<tcp::socket>(std::move(socket))] {
        std::make_shared<Session>(loop, std::move(*held))->start();
      });
      accept();
    });
  }

  void acceptLater() {
    pause_.expires_after(kAcceptPause);
    pause_.async_wait([this](error_code error) {
      if (!error) {
        accept();
      }
    });
  }

  Loops loops_;
  std::size_t next_ = 0;
  tcp::acceptor acceptor_;
  asio::steady_timer pause_;
};

} // namespace

void serve(const ServeOptions &options) {
  const StopSignals stopSignals;
  raiseDescriptorLimit();
  Service service(options, putAside);
  LoopServer server(service, options);
  report("listening on 127.0.0.1:" + std::to_string(server.port()) + ", the private key is held by " +
         service.holderName());
  server.run(stopSignals);
}

} // namespace delegated_tls
