// Settings of the process: an engine's commands may come before and after its first keys.
#include "Settings.h"

#include "Errors.h"
#include "reference/Reference.h"

#include <charconv>
#include <cstdlib>
#include <cstring>
#include <map>
#include <mutex>

namespace krEngine {

namespace {

struct Settings {
  std::mutex mutex;
  krHolder::ClientOptions options;
  std::map<std::string, std::shared_ptr<krHolder::Client>> clients;
};

std::string checkedSocket(const char *path) {
  if (!krHolder::isSocket(path)) {
    throw Failure(Reason::setting, std::string("the socket is not an absolute path of at most 107 bytes: ") + path);
  }
  return path;
}

// Never taken down: keys may be used while the process ends.
Settings &settings() {
  static Settings &only = *[] {
    auto made = std::make_unique<Settings>();
    if (const char *socket = secure_getenv("KRHOLDER_SOCKET")) {
      made->options.socket = checkedSocket(socket);
    }
    return made.release();
  }();
  return only;
}

} // namespace

void setSocket(const char *path) {
  const std::string checked = checkedSocket(path);
  const std::scoped_lock lock(settings().mutex);
  settings().options.socket = checked;
}

void setDeadline(const char *milliseconds) {
  constexpr int kMostMilliseconds = 60'000;
  const char *end = milliseconds + std::strlen(milliseconds);
  int number = 0;
  const auto [stopped, error] = std::from_chars(milliseconds, end, number);
  if (error != std::errc() || stopped != end || number < 1 || number > kMostMilliseconds) {
    throw Failure(Reason::setting,
                  std::string("the deadline is not a number of milliseconds up to 60000: ") + milliseconds);
  }
  const std::scoped_lock lock(settings().mutex);
  settings().options.patience = std::chrono::milliseconds(number);
  settings().clients.clear(); // keys keep those that they have
}

std::shared_ptr<krHolder::Client> clientFor(const std::string &socket) {
  const std::scoped_lock lock(settings().mutex);
  krHolder::ClientOptions options = settings().options;
  if (!socket.empty()) {
    options.socket = socket;
  }
  auto &client = settings().clients[options.socket];
  if (!client) {
    client = std::make_shared<krHolder::Client>(options);
  }
  return client;
}

} // namespace krEngine
