// The holder as a whole.
#include "Server.h"

#include "Failure.h"
#include "Listening.h"
#include "Log.h"

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <poll.h>
#include <sys/signalfd.h>
#include <sys/socket.h>
#include <unistd.h>

namespace krHolder {

namespace {

constexpr std::chrono::milliseconds kMetricsPeriod{15'000};
constexpr int kRestMilliseconds = 100; // where there is no descriptor for another connection
constexpr std::chrono::seconds kLastAnswers{5};

int nextSignal(const Descriptor &signals) {
  signalfd_siginfo info{};
  return read(signals.get(), &info, sizeof info) == sizeof info ? static_cast<int>(info.ssi_signo) : 0;
}

} // namespace

Server::Server(std::string configFile, BackEnds backEnds)
    : configFile_(std::move(configFile)), backEnds_(std::move(backEnds)), config_(readConfig(configFile_, backEnds_)),
      service_(std::make_shared<const Service>(config_, metrics_)), listening_(listeningSocket(config_.socket)),
      connections_(config_.connections) {}

// They are blocked for all threads to come.
Descriptor Server::signalsOfInterest() {
  sigset_t signals;
  sigemptyset(&signals);
  for (const int each : {SIGTERM, SIGINT, SIGHUP}) {
    sigaddset(&signals, each);
  }
  pthread_sigmask(SIG_BLOCK, &signals, nullptr);
  static_cast<void>(std::signal(SIGPIPE, SIG_IGN)); // a token's module may write where nobody reads any more
  return Descriptor(signalfd(-1, &signals, SFD_CLOEXEC));
}

void Server::run() {
  log("start", {{"socket", config_.socket}, {"keys", std::to_string(config_.keys.size())}});
  for (;;) {
    std::array<pollfd, 2> entries{pollfd{signals_.get(), POLLIN, 0}, pollfd{listening_.get(), POLLIN, 0}};
    poll(entries.data(), entries.size(), static_cast<int>(kMetricsPeriod.count()));
    if (Clock::now() >= metricsDue_) {
      writeMetrics();
    }
    if ((entries[1].revents & POLLIN) != 0) {
      accept();
    }
    if ((entries[0].revents & POLLIN) == 0) {
      continue;
    }
    if (nextSignal(signals_) != SIGHUP) {
      break;
    }
    reload();
  }
  listening_ = Descriptor(); // a socket of the service manager's keeps who comes now
  connections_.end(Clock::now() + kLastAnswers);
  writeMetrics();
  log("stop", {{"connections", std::to_string(connections_.count())}});
  if (connections_.count() != 0) {
    std::_Exit(EXIT_SUCCESS); // their threads use what the end of main would take apart
  }
}

void Server::accept() {
  Descriptor connection(accept4(listening_.get(), nullptr, nullptr, SOCK_CLOEXEC));
  if (!connection) {
    poll(nullptr, 0, errno == EMFILE || errno == ENFILE || errno == ENOMEM ? kRestMilliseconds : 0);
    return;
  }
  if (!connections_.add(std::move(connection),
                        [this](const Descriptor &own) { converse(own, [this] { return current(); }); })) {
    log("connection", {{"outcome", "busy"}, {"connections", std::to_string(connections_.count())}});
  }
}

void Server::reload() {
  try {
    const Config fresh = readConfig(configFile_, backEnds_);
    auto service = std::make_shared<const Service>(fresh, metrics_);
    config_.metrics = fresh.metrics;
    const std::lock_guard lock(mutex_);
    service_ = std::move(service);
    log("reload", {{"outcome", "ok"}, {"keys", std::to_string(fresh.keys.size())}});
  } catch (const Unusable &reason) {
    log("reload", {{"outcome", "failed"}, {"reason", reason.what()}});
  }
}

void Server::writeMetrics() {
  metricsDue_ = Clock::now() + kMetricsPeriod;
  if (!config_.metrics.empty() && !metrics_.write(config_.metrics, connections_.count())) {
    log("metrics", {{"outcome", "failed"}, {"file", config_.metrics}});
  }
}

std::shared_ptr<const Service> Server::current() const {
  const std::lock_guard lock(mutex_);
  return service_;
}

} // namespace krHolder
