// What the fuzz targets share: the check that ends a run, taking an input apart, and encodings to compare by.
#pragma once

#include <krOpenSSL/krHandles.h>

#include <fuzzer/FuzzedDataProvider.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <vector>

namespace krFuzz {

/// Bytes on the heap in exactly the room they need: the sanitizer tells of one that is read or written beyond.
using Bytes = std::vector<unsigned char>;
using Input = FuzzedDataProvider;

constexpr unsigned char kUntouched = 0xEE;
constexpr int kMostSteps = 12; ///< of one input: short ones are many, and reach as far

/// What has to hold. If it does not, the run ends, and libFuzzer keeps the input.
inline void require(bool holds, const char *what) {
  if (!holds) {
    (void)std::fprintf(stderr, "does not hold: %s\n", what);
    std::abort();
  }
}

/// What happens once in so many times; not at all when the input is at its end.
inline bool oneIn(Input &input, int kinds) { return input.ConsumeIntegralInRange(0, kinds - 1) == 1; }

inline std::size_t takeLength(Input &input, std::size_t most) {
  return input.ConsumeIntegralInRange<std::size_t>(0, most);
}

/// So many bytes: those of the input, and others behind its end.
inline Bytes takeExactly(Input &input, std::size_t length, unsigned char other = 0) {
  Bytes bytes = input.ConsumeBytes<unsigned char>(length);
  bytes.resize(length, other);
  bytes.shrink_to_fit();
  return bytes;
}

/// Up to @p most bytes of the input.
inline Bytes takeBytes(Input &input, std::size_t most) {
  Bytes bytes = input.ConsumeBytes<unsigned char>(takeLength(input, most));
  bytes.shrink_to_fit();
  return bytes;
}

template <class Step> void takeSteps(Input &input, Step step) {
  for (int count = 0; count < kMostSteps && input.remaining_bytes() > 0; ++count) {
    step();
  }
}

inline BIGNUM *numberOf(const Bytes &bytes) { return BN_bin2bn(bytes.data(), static_cast<int>(bytes.size()), nullptr); }

/// The DER encoding of an object, empty for none and for one that has none.
template <auto Encode, class Object> Bytes encoded(Object *object) {
  Bytes encoding(static_cast<std::size_t>(object != nullptr ? std::max(Encode(object, nullptr), 0) : 0));
  if (!encoding.empty()) {
    unsigned char *end = encoding.data();
    Encode(object, &end);
  }
  return encoding;
}

/// The same; the object goes.
template <auto Encode, auto Free, class Object> Bytes encodingOf(Object *object) {
  const krOpenSSL::Handle<Object, Free> owner(object);
  return encoded<Encode>(object);
}

/// Whether the library's console trace is sent away, which it is from the start.
inline const bool kIsSilent = std::freopen("/dev/null", "w", stdout) != nullptr;

} // namespace krFuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size);
