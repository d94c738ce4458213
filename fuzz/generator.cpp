// The FIPS 186-2 generator against the standard's arithmetic: any sequence of seeding, drawing and stirring, with any
// lengths, splits and moduli.
#include "Fips186_2.h"

#include <krOpenSSL/kroFipsRngSha1.h>

namespace {

using namespace krFuzz;

constexpr std::size_t kMostSeed = 150;
constexpr std::size_t kMostDraw = 120;

const unsigned char *pointer(const Bytes &bytes) { return bytes.empty() ? nullptr : bytes.data(); }

Bytes takeQ(FuzzedDataProvider &input) {
  Bytes q = input.ConsumeBool() ? input.ConsumeBytes<unsigned char>(Fips186_2::kBlockBytes) : Bytes{};
  if (!q.empty()) {
    q.resize(Fips186_2::kBlockBytes);
    q[0] |= input.PickValueInArray<unsigned char>({0x80, 0xff, 0});
    q.back() |= 1U;
  }
  return q;
}

void init(FuzzedDataProvider &input, kroFipsRngSha1 &generator, Fips186_2 &reference) {
  const Bytes q = takeQ(input);
  const Bytes seed = takeBytes(input, kMostSeed);
  generator.Init(pointer(seed), seed.size(), pointer(q));
  reference.init(seed, q);
}

void draw(FuzzedDataProvider &input, kroFipsRngSha1 &generator, Fips186_2 &reference) {
  Bytes out(input.ConsumeIntegralInRange<std::size_t>(0, kMostDraw));
  const Bytes xseed = takeBytes(input, kMostSeed);
  generator.Generate(pointer(out) != nullptr ? out.data() : nullptr, out.size(), pointer(xseed), xseed.size());
  require(out == reference.generate(out.size(), xseed), "the bytes are the standard's");
}

void stir(FuzzedDataProvider &input, kroFipsRngSha1 &generator, Fips186_2 &reference) {
  const Bytes xseed = takeBytes(input, kMostSeed);
  generator.Iterate(pointer(xseed), xseed.size());
  reference.iterate(xseed);
}

} // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
  FuzzedDataProvider input(data, size);
  kroFipsRngSha1 generator;
  Fips186_2 reference;
  while (input.remaining_bytes() > 0) {
    switch (input.ConsumeIntegralInRange(0, 4)) {
    case 0:
      init(input, generator, reference);
      break;
    case 1:
      stir(input, generator, reference);
      break;
    case 2:
      generator = kroFipsRngSha1(generator);
      break;
    default:
      draw(input, generator, reference);
    }
  }
  return 0;
}
