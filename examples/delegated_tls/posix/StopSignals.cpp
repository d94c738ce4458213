// SIGINT and SIGTERM as a request to stop.
#include "StopSignals.h"

#include <csignal>

namespace delegated_tls {
namespace {

sigset_t stopSignals() {
  sigset_t set;
  sigemptyset(&set);
  sigaddset(&set, SIGINT);
  sigaddset(&set, SIGTERM);
  return set;
}

} // namespace

// A peer that goes while it is written to is that connection's affair, so SIGPIPE is nobody's.
StopSignals::StopSignals() {
  const sigset_t set = stopSignals();
  pthread_sigmask(SIG_BLOCK, &set, nullptr);
  static_cast<void>(std::signal(SIGPIPE, SIG_IGN));
}

void StopSignals::wait() const {
  const sigset_t set = stopSignals();
  int signal = 0;
  sigwait(&set, &signal);
}

} // namespace delegated_tls
