// The generator's self-test: one published answer and two checks of the reduction modulo q.
#include <krOpenSSL/kroFipsRngSha1.h>

#include "BigEndian.h"

#include <algorithm>
#include <array>

namespace {

using krOpenSSL::Number512;

constexpr std::size_t kNumberBytes = 44;
using Number = std::array<unsigned char, kNumberBytes>;

// FIPS 186-2 Appendix 5: the seed-key of the DSA example's private key, and that key.
constexpr std::array<unsigned char, 20> kXKey{0xbd, 0x02, 0x9b, 0xbe, 0x7f, 0x51, 0x96, 0x0b, 0xcf, 0x9e,
                                              0xdb, 0x2b, 0x61, 0xf0, 0x6f, 0x0f, 0xeb, 0x5a, 0x38, 0xb6};
constexpr std::array<unsigned char, 20> kX{0x20, 0x70, 0xb3, 0x22, 0x3d, 0xba, 0x37, 0x2f, 0xde, 0x1c,
                                           0x0f, 0xfc, 0x7b, 0x2e, 0x3b, 0x49, 0x8b, 0x26, 0x06, 0x14};

constexpr std::array<unsigned char, 20> kQ{0xb5, 0xaf, 0xd2, 0xf9, 0x32, 0x46, 0xb1, 0xef, 0xcd, 0x1f,
                                           0x3a, 0x7c, 0x24, 0x0c, 0x1e, 0x9e, 0x21, 0xa3, 0x63, 0x0b};
constexpr std::array<unsigned char, 14> kRemainder1{1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14};
constexpr std::array<unsigned char, 5> kRemainder2{1, 2, 3, 4, 5};
constexpr std::size_t kRemainder2Shift = 13; // 104 bits
constexpr std::size_t kRemainder2At = kNumberBytes - kRemainder2Shift - kRemainder2.size();
constexpr std::size_t kMultiplierBytes = 24; // 01 01 ... 01

// number += value * 2^(8 * shift)
template <std::size_t Bytes>
void addShifted(Number &number, const std::array<unsigned char, Bytes> &value, std::size_t shift) noexcept {
  Number shifted{};
  std::copy(value.begin(), value.end(), shifted.end() - shift - Bytes);
  Number512 sum;
  Number512 addend;
  sum.load(number.data(), kNumberBytes);
  addend.load(shifted.data(), kNumberBytes);
  sum.add(addend, 0);
  sum.store(number.data(), kNumberBytes);
}

Number multipleOfQPlusRemainder1() noexcept {
  Number number{};
  for (std::size_t shift = 0; shift < kMultiplierBytes; ++shift) {
    addShifted(number, kQ, shift);
  }
  addShifted(number, kRemainder1, 0);
  return number;
}

Number qPlusShiftedRemainder2() noexcept {
  Number number{};
  addShifted(number, kQ, 0);
  addShifted(number, kRemainder2, kRemainder2Shift);
  return number;
}

} // namespace

bool kroFipsRngSha1::Validate() {
  kroFipsRngSha1 generator;
  generator.Init(kXKey.data(), kXKey.size(), nullptr);
  std::array<unsigned char, kX.size()> x{};
  generator.Generate(x.data(), x.size(), nullptr, 0);
  if (x != kX) {
    return false;
  }

  generator.Init(nullptr, 0, kQ.data());
  std::ranges::copy(multipleOfQPlusRemainder1(), generator.block_);
  generator.ModQ();
  if (!std::equal(kRemainder1.begin(), kRemainder1.end(), std::end(generator.block_) - kRemainder1.size())) {
    return false;
  }

  std::ranges::copy(qPlusShiftedRemainder2(), generator.block_);
  generator.ModQ();
  return std::equal(kRemainder2.begin(), kRemainder2.end(), generator.block_ + kRemainder2At);
}
