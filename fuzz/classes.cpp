// Key wrap and the generator beside the standards: any sequence of calls on two objects of a class that are copied from
// one another, with any lengths, nulls and overlaps.
#include "Fips186_2.h"

#include <krOpenSSL/kroAESWrap.h>
#include <krOpenSSL/kroFipsRngSha1.h>

#include <openssl/aes.h>

namespace {

using namespace krFuzz;

constexpr std::size_t kMost = 150;

// Each class beside what it has to do. A step is a call on both.

struct WrapTwin {
  static constexpr std::size_t kSemiblock = 8;

  kroAESWrap object;
  Bytes key; // none: empty
  bool wraps = false;

  void step(Input &input) {
    if (input.ConsumeIntegralInRange(0, 2) == 0) {
      setKey(input);
      return;
    }
    const bool encrypts = input.ConsumeBool();
    const Bytes iv = takeExactly(input, kSemiblock, 0xA6); // with what is the default
    const unsigned char *given = input.ConsumeBool() ? nullptr : iv.data();
    const auto flip = input.ConsumeIntegral<std::uint16_t>();
    const Bytes text = takeBytes(input, kMost);
    const bool isKeyed = !key.empty() && text.size() >= kSemiblock && text.size() % kSemiblock == 0;
    Bytes wrapped = isKeyed ? wrap(given, text) : Bytes(text.size() + kSemiblock);
    if (encrypts) {
      inOneBlock(input, text, wrapped, isKeyed && wraps,
                 [&](auto *out, auto *in) { return object.Encrypt(out, in, text.size(), given); });
      return;
    }
    wrapped[flip / 8U % wrapped.size()] ^= static_cast<unsigned char>(flip != 0 ? 1U << flip % 8U : 0);
    inOneBlock(input, wrapped, text, isKeyed && !wraps && flip == 0,
               [&](auto *out, auto *in) { return object.Decrypt(out, text.size(), in, given); });
  }

  // Lengths that are none re-key the cipher that is set.
  void setKey(Input &input) {
    Bytes bytes = takeExactly(input, 32);
    const auto length = input.PickValueInArray<std::uint64_t>({16, 24, 32, 128, 192, 256, 0, 17, 1024});
    const bool encrypts = input.ConsumeBool();
    const bool isNull = oneIn(input, 16);
    (object.*(encrypts ? &kroAESWrap::SetEncryptKey : &kroAESWrap::SetDecryptKey))(isNull ? nullptr : bytes.data(),
                                                                                   length);
    const bool isLength = length % 8 == 0 && length >= 16 && length <= 256;
    const std::size_t size = isLength ? (length <= 32 ? length : length / 8) : key.size();
    bytes.resize(isNull ? 0 : size);
    wraps = size != 0 ? encrypts : wraps;
    key = std::move(bytes);
  }

  /// RFC 3394, 2.2.1.
  Bytes wrap(const unsigned char *iv, const Bytes &text) const {
    AES_KEY schedule;
    AES_set_encrypt_key(key.data(), static_cast<int>(key.size() * 8), &schedule);
    Bytes block(AES_BLOCK_SIZE, 0xA6);
    std::copy_n(iv != nullptr ? iv : block.data(), kSemiblock, block.begin());
    Bytes wrapped(kSemiblock);
    wrapped.insert(wrapped.end(), text.begin(), text.end());
    unsigned step = 0;
    for (int pass = 0; pass < 6; ++pass) {
      for (auto r = wrapped.begin() + kSemiblock; r != wrapped.end(); r += kSemiblock) {
        std::copy_n(r, kSemiblock, block.begin() + kSemiblock);
        AES_encrypt(block.data(), block.data(), &schedule);
        block[7] ^= static_cast<unsigned char>(++step); // below 2^8
        std::copy_n(block.begin() + kSemiblock, kSemiblock, r);
      }
    }
    std::copy_n(block.begin(), kSemiblock, wrapped.begin());
    return wrapped;
  }

  /// Runs a call whose input and output may overlap.
  template <class Call>
  static void inOneBlock(Input &input, const Bytes &in, const Bytes &result, bool isDone, Call call) {
    const auto inAt = input.ConsumeIntegralInRange<std::uint8_t>(0, 64);
    const auto outAt = input.ConsumeIntegralInRange<std::uint8_t>(0, 64);
    Bytes block(std::max(inAt + in.size(), outAt + result.size()), kUntouched);
    std::copy(in.begin(), in.end(), block.begin() + inAt);
    Bytes expected = block;
    if (isDone) {
      std::copy(result.begin(), result.end(), expected.begin() + outAt);
    }
    require(call(block.data() + outAt, block.data() + inAt) == isDone,
            "what is whole and keyed for it is wrapped and unwrapped");
    require(block == expected, "what is refused leaves everything untouched; else the output alone is written");
  }
};

struct GeneratorTwin {
  kroFipsRngSha1 generator;
  Fips186_2 standard;

  void step(Input &input) {
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
};

} // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
  Input input(data, size);
  (input.ConsumeBool() ? playTwins<WrapTwin> : playTwins<GeneratorTwin>)(input);
  return 0;
}
