// Frames and references from anybody: what is taken is what it would be written as. And frames over a socket, cut
// anywhere.
#include "reference/Reference.h"
#include "wire/Octets.h"
#include "wire/Stream.h"

#include <algorithm>
#include <cstdlib>
#include <sys/socket.h>

using namespace krHolder;

namespace {

void expect(bool holds) {
  if (!holds) {
    std::abort();
  }
}

template <class Message> void expectSame(const std::optional<Message> &message, View payload) {
  if (message) {
    const Bytes frame = encode(*message);
    expect(payloadBytes(View(frame).first<kHeadBytes>()) == payload.size());
    expect(std::ranges::equal(View(frame).subspan(kHeadBytes), payload));
  }
}

void expectNext(Incoming &incoming, View payload) {
  Bytes come;
  expect(incoming.next(come, Clock::now() + std::chrono::seconds(5)) == Outcome::done);
  expect(std::ranges::equal(come, payload));
}

// Two frames, of which some bytes of the second come with the first.
void expectThrough(View payload) {
  std::array<int, 2> ends{};
  expect(socketpair(AF_UNIX, SOCK_STREAM, 0, ends.data()) == 0);
  const Descriptor from(ends[0]);
  const Descriptor to(ends[1]);
  const Bytes frame = std::move(Writer().number(static_cast<std::uint32_t>(payload.size())).bytes(payload)).take();
  Bytes first = frame;
  const auto cut = frame.begin() + payload[0] % static_cast<std::ptrdiff_t>(frame.size());
  first.insert(first.end(), frame.begin(), cut);
  Incoming incoming(to);
  expect(send(from, first, Clock::time_point::max()) == Outcome::done);
  expectNext(incoming, payload);
  expect(send(from, View(cut, frame.end()), Clock::time_point::max()) == Outcome::done);
  expectNext(incoming, payload);
  expect(incoming.empty());
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const unsigned char *data, std::size_t size) {
  const View payload(data, std::min(size, kMaxPayloadBytes));
  expectSame(decodeRequest(payload), payload);
  expectSame(decodeAnswer(payload), payload);
  if (!payload.empty() && size < kMaxPayloadBytes) {
    expectThrough(payload);
  }
  try {
    expect(std::ranges::equal(encode(decodeReference(payload)), payload));
  } catch (const BadReference &) {
    return 0;
  }
  return 0;
}
