// Frames and references from anybody: what is taken is what it would be written as.
#include "reference/Reference.h"
#include "wire/Message.h"

#include <algorithm>
#include <cstdlib>

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

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const unsigned char *data, std::size_t size) {
  const View payload(data, std::min(size, kMaxPayloadBytes));
  expectSame(decodeRequest(payload), payload);
  expectSame(decodeAnswer(payload), payload);
  try {
    expect(std::ranges::equal(encode(decodeReference(payload)), payload));
  } catch (const BadReference &) {
    return 0;
  }
  return 0;
}
