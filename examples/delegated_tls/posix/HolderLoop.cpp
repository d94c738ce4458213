// One request after the other; the answers to those that came together go together.
#include "posix/HolderLoop.h"

#include "posix/Frame.h"

#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cerrno>

namespace delegated_tls {
namespace {

void answer(FrameReader &request, const std::vector<PrivateKey> &keys, Bytes &answers) {
  const std::uint32_t id = request.number();
  const auto operation = static_cast<Operation>(request.number());
  const std::size_t key = request.number();
  const int padding = static_cast<int>(request.number());
  const Bytes data = request.bytes();
  const std::optional<Bytes> result = key < keys.size() ? keys[key].perform(operation, padding, data) : std::nullopt;
  FrameWriter().number(id).number(result.has_value() ? 1 : 0).bytes(result.value_or(Bytes{})).appendTo(answers);
}

bool sendAll(const Descriptor &socket, const Bytes &answers) {
  for (std::size_t sent = 0; sent < answers.size();) {
    const ssize_t some = send(socket.get(), answers.data() + sent, answers.size() - sent, MSG_NOSIGNAL);
    if (some < 0 && errno != EINTR) {
      return false;
    }
    sent += some > 0 ? static_cast<std::size_t>(some) : 0;
  }
  return true;
}

} // namespace

void runHolder(const Descriptor &socket, const std::vector<PrivateKey> &keys) noexcept {
  std::array<unsigned char, 65536> part{};
  FrameStream requests;
  for (;;) {
    const ssize_t got = recv(socket.get(), part.data(), part.size(), 0);
    if (got < 0 && errno == EINTR) {
      continue;
    }
    if (got <= 0) {
      _exit(0);
    }
    requests.append({part.data(), static_cast<std::size_t>(got)});
    Bytes answers;
    while (std::optional<FrameReader> request = requests.next()) {
      answer(*request, keys, answers);
    }
    if (!sendAll(socket, answers)) {
      _exit(1);
    }
  }
}

} // namespace delegated_tls
