// AES key wrap against OpenSSL's, and against itself: any key, initial value and data, in one direction and back,
// with input and output apart or overlapping.
#include "Fuzz.h"

#include <krOpenSSL/kroAESWrap.h>

#include <openssl/aes.h>

#include <algorithm>

namespace {

using namespace krFuzz;

constexpr std::size_t kSemiblock = 8;
constexpr unsigned char kUntouched = 0xEE;

struct Key {
  Bytes bytes;
  std::uint64_t length; // as it is said: bytes or bits
};

struct Iv {
  Bytes bytes;
  bool isDefault;
  const unsigned char *get() const { return isDefault ? nullptr : bytes.data(); }
};

Key takeKey(FuzzedDataProvider &input) {
  const auto bits = input.PickValueInArray<std::uint64_t>({128, 192, 256});
  Bytes bytes = input.ConsumeBytes<unsigned char>(bits / 8);
  bytes.resize(bits / 8);
  return {std::move(bytes), input.ConsumeBool() ? bits : bits / 8};
}

// A key is set at once, in place of another, or once more by a length that says nothing; or the keyed object is copied.
kroAESWrap keyed(void (kroAESWrap::*set)(const unsigned char *, std::uint64_t), const Key &key, int way) {
  kroAESWrap wrap;
  if (way == 1) {
    (wrap.*set)(Bytes(32, 1).data(), 32);
  }
  (wrap.*set)(key.bytes.data(), key.length);
  if (way == 2) {
    (wrap.*set)(key.bytes.data(), 17);
  }
  return way == 3 ? kroAESWrap(wrap) : wrap;
}

/// OpenSSL's answer; empty when it refuses.
Bytes reference(bool wraps, const Key &key, const Iv &iv, const Bytes &data) {
  AES_KEY schedule;
  const auto bits = static_cast<int>(key.bytes.size() * 8);
  (wraps ? AES_set_encrypt_key : AES_set_decrypt_key)(key.bytes.data(), bits, &schedule);
  Bytes out(data.size() + 2 * kSemiblock);
  const int length = (wraps ? AES_wrap_key : AES_unwrap_key)(&schedule, iv.get(), out.data(), data.data(),
                                                             static_cast<unsigned>(data.size()));
  out.resize(static_cast<std::size_t>(std::max(length, 0)));
  return out;
}

/// Runs one direction in a block that holds input and output at two places, which may overlap.
/// @return the output; empty when it was refused
template <class Work>
Bytes inOneBlock(const Bytes &in, std::size_t outLength, std::size_t inAt, std::size_t outAt, Work work) {
  Bytes block(std::max(inAt + in.size(), outAt + outLength), kUntouched);
  std::copy(in.begin(), in.end(), block.begin() + static_cast<std::ptrdiff_t>(inAt));
  Bytes expected = block;
  const bool done = work(block.data() + outAt, block.data() + inAt);
  const auto out = block.begin() + static_cast<std::ptrdiff_t>(outAt);
  Bytes result(out, out + static_cast<std::ptrdiff_t>(done ? outLength : 0));
  std::copy(result.begin(), result.end(), expected.begin() + static_cast<std::ptrdiff_t>(outAt));
  require(block == expected, "what is refused leaves everything untouched; else the output alone is written");
  return result;
}

void flipBit(Bytes &bytes, std::size_t which) {
  bytes[which / 8 % bytes.size()] ^= static_cast<unsigned char>(1U << which % 8);
}

} // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
  FuzzedDataProvider input(data, size);
  const Key key = takeKey(input);
  Iv iv{input.ConsumeBytes<unsigned char>(kSemiblock), input.ConsumeBool()};
  iv.bytes.resize(kSemiblock);
  const int way = input.ConsumeIntegralInRange(0, 3);
  const auto inAt = input.ConsumeIntegralInRange<std::size_t>(0, 64);
  const auto outAt = input.ConsumeIntegralInRange<std::size_t>(0, 64);
  const auto flip = input.ConsumeIntegral<std::uint32_t>();
  const Bytes text = input.ConsumeRemainingBytes<unsigned char>();

  kroAESWrap wrapper = keyed(&kroAESWrap::SetEncryptKey, key, way);
  kroAESWrap unwrapper = keyed(&kroAESWrap::SetDecryptKey, key, way);
  const auto wrap = [&](const Bytes &in) {
    return inOneBlock(in, in.size() + kSemiblock, inAt, outAt,
                      [&](auto *out, auto *from) { return wrapper.Encrypt(out, from, in.size(), iv.get()); });
  };
  const auto unwrap = [&](const Bytes &in) {
    const std::size_t length = in.size() < kSemiblock ? 0 : in.size() - kSemiblock;
    return inOneBlock(in, length, inAt, outAt,
                      [&](auto *out, auto *from) { return unwrapper.Decrypt(out, length, from, iv.get()); });
  };

  Bytes wrapped = wrap(text);
  require(wrapped.empty() == (text.size() < kSemiblock || text.size() % kSemiblock != 0),
          "whole semiblocks are wrapped");
  if (!wrapped.empty()) {
    require(unwrap(wrapped) == text, "what was wrapped is unwrapped");
    flipBit(wrapped, flip);
    require(unwrap(wrapped).empty(), "a changed bit is noticed");
    flipBit(wrapped, flip);
    flipBit(iv.bytes, flip);
    require(iv.isDefault || unwrap(wrapped).empty(), "another initial value is noticed");
  }
  // OpenSSL refuses a single semiblock.
  if (text.size() != kSemiblock) {
    require(wrap(text) == reference(true, key, iv, text), "OpenSSL wraps the same");
  }
  if (text.size() != 2 * kSemiblock) {
    require(unwrap(text) == reference(false, key, iv, text), "OpenSSL unwraps the same");
  }
  return 0;
}
