// What the fuzz targets share: the check that ends a run, and taking an input apart.
#pragma once

#include <fuzzer/FuzzedDataProvider.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <vector>

namespace krFuzz {

/// Bytes on the heap in exactly the room they need: the sanitizer tells of one that is read or written beyond.
using Bytes = std::vector<unsigned char>;

/// What has to hold. If it does not, the run ends, and libFuzzer keeps the input.
inline void require(bool holds, const char *what) {
  if (!holds) {
    (void)std::fprintf(stderr, "does not hold: %s\n", what);
    std::abort();
  }
}

/// Up to @p most bytes of the input.
inline Bytes takeBytes(FuzzedDataProvider &input, std::size_t most) {
  Bytes bytes = input.ConsumeBytes<unsigned char>(input.ConsumeIntegralInRange<std::size_t>(0, most));
  bytes.shrink_to_fit();
  return bytes;
}

/// Whether the library's console trace is sent away, which it is from the start.
inline const bool kIsSilent = std::freopen("/dev/null", "w", stdout) != nullptr;

} // namespace krFuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size);
