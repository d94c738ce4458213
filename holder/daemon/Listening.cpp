// The socket that the holder listens on.
#include "Listening.h"

#include "Failure.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

namespace krHolder {

namespace {

constexpr int kPassedSocket = 3; // the first one, by the service manager's protocol
constexpr int kBacklog = 1024;   // handshakes that wait while the holder starts anew

[[noreturn]] void fail(const std::string &path, int error) {
  throw Unusable(path + ": " + std::generic_category().message(error));
}

bool isPassed() {
  const char *const process = std::getenv("LISTEN_PID"); // NOLINT(concurrency-mt-unsafe): there is one thread so far
  const char *const count = std::getenv("LISTEN_FDS");   // NOLINT(concurrency-mt-unsafe): the same
  return process != nullptr && count != nullptr && std::to_string(getpid()) == process && std::strcmp(count, "1") == 0;
}

sockaddr_un addressOf(const std::string &path) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  if (path.size() >= sizeof address.sun_path) {
    fail(path, ENAMETOOLONG);
  }
  std::memcpy(address.sun_path, path.data(), path.size());
  return address;
}

// What a holder that died has left; not one that lives, nor anything else.
void removeStale(const std::string &path, const sockaddr_un &address) {
  struct stat status {};
  if (lstat(path.c_str(), &status) != 0 || !S_ISSOCK(status.st_mode)) {
    return;
  }
  const Descriptor trial = openSocket();
  const bool refused = connect(trial.get(), reinterpret_cast<const sockaddr *>(&address), sizeof address) != 0;
  if (refused && errno == ECONNREFUSED) {
    unlink(path.c_str());
  }
}

} // namespace

Descriptor listeningSocket(const std::string &path) {
  if (isPassed()) {
    int listens = 0;
    socklen_t bytes = sizeof listens;
    if (getsockopt(kPassedSocket, SOL_SOCKET, SO_ACCEPTCONN, &listens, &bytes) != 0 || listens == 0 ||
        fcntl(kPassedSocket, F_SETFD, FD_CLOEXEC) != 0) {
      throw Unusable("the service manager passed no socket that listens");
    }
    return Descriptor(kPassedSocket);
  }
  const sockaddr_un address = addressOf(path);
  removeStale(path, address);
  Descriptor listening = openSocket();
  if (!listening || bind(listening.get(), reinterpret_cast<const sockaddr *>(&address), sizeof address) != 0 ||
      chmod(path.c_str(), ACCESSPERMS) != 0 || listen(listening.get(), kBacklog) != 0) {
    fail(path, errno);
  }
  return listening;
}

} // namespace krHolder
