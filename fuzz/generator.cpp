// The generator beside the standard: any sequence of calls, with any seed, input and length.
#include "Fips186_2.h"

#include <krOpenSSL/kroFipsRngSha1.h>

namespace {

using namespace krFuzz;

/// A call on both.
void step(Input &input, kroFipsRngSha1 &generator, Fips186_2 &standard) {
  constexpr std::size_t kMost = 150;
  const int call = input.ConsumeIntegralInRange(0, 4);
  const Bytes bytes = takeBytes(input, kMost);
  const unsigned char *data = bytes.empty() ? nullptr : bytes.data();
  if (call == 0) {
    Bytes q = input.ConsumeBool() ? takeExactly(input, Fips186_2::kBlockBytes, 1) : Bytes{};
    if (!q.empty()) {
      q[0] |= input.PickValueInArray<unsigned char>({0x80, 0xff, 0});
      q.back() |= 1U;
    }
    generator.Init(data, bytes.size(), q.empty() ? nullptr : q.data());
    standard.init(bytes, q);
  } else if (call == 1) {
    generator.Iterate(data, bytes.size());
    standard.iterate(bytes);
  } else {
    Bytes out(takeLength(input, kMost));
    generator.Generate(out.empty() ? nullptr : out.data(), out.size(), data, bytes.size());
    require(out == standard.generate(out.size(), bytes), "the bytes are the standard's");
  }
}

} // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
  Input input(data, size);
  kroFipsRngSha1 generator;
  Fips186_2 standard;
  takeSteps(input, [&] { step(input, generator, standard); });
  return 0;
}
