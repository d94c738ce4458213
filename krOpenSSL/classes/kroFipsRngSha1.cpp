// The FIPS 186-2 generator. G is the bare SHA-1 compression function: SHA1_Update compresses a full
// 64-byte block at once, and its five state words are read without SHA1_Final's padding.
#include <krOpenSSL/kroFipsRngSha1.h>

#include "BigEndian.h"
#include "NoInline.h"

#include <openssl/crypto.h>
#include <openssl/sha.h>

#include <algorithm>
#include <array>
#include <cstring>

namespace {

using krOpenSSL::loadBigEndian;
using krOpenSSL::Number512;
using krOpenSSL::storeBigEndian;

constexpr std::size_t kBlockBytes = 20;
constexpr std::size_t kMaxXKeyBytes = 64;
constexpr std::size_t kQBytes = 20;
constexpr std::size_t kBufferBytes = 44;
constexpr std::size_t kW0 = 4;
constexpr std::size_t kW1 = kW0 + kBlockBytes;
constexpr std::size_t kSpanBytes = 24;
constexpr std::size_t kWordBytes = sizeof(std::uint32_t);

// What the functions below a member's own leave on the stack. OpenSSL's SHA-1 keeps its message there, which is XVAL,
// down to 848 bytes with AVX2 and less elsewhere; the rest is for this file's functions.
constexpr std::size_t kUsedStackBytes = 1280;

// Its frame lies where theirs lay.
KR_NOINLINE void cleanStack() noexcept {
  std::array<unsigned char, kUsedStackBytes> used;
  OPENSSL_cleanse(used.data(), used.size());
}

// The high word of the number is below the divisor, so the quotient is one word. Bit by bit and without a branch, since
// the time of a processor's division tells of its numbers.
std::uint64_t quotient(std::uint64_t number, std::uint64_t divisor) noexcept {
  std::uint64_t rest = number >> 32U;
  std::uint64_t digit = 0;
  for (unsigned bit = 32; bit-- > 0;) {
    rest = (rest << 1U | (number >> bit & 1U)) - divisor;
    const std::uint64_t isNegative = rest >> 63U;
    rest += divisor & (0 - isNegative);
    digit = digit << 1U | (isNegative ^ 1U);
  }
  return digit;
}

// 1 when the span's number is q or more, else 0: the carry of adding the complement of q, and 1.
std::uint64_t reaches(const unsigned char *q, const unsigned char *span) noexcept {
  std::uint64_t carry = 1;
  for (std::size_t at = kQBytes; at > 0; at -= kWordBytes) {
    const auto complement = static_cast<std::uint32_t>(~loadBigEndian<std::uint32_t>(q + at - kWordBytes));
    carry = (std::uint64_t{loadBigEndian<std::uint32_t>(span + at)} + complement + carry) >> 32U;
  }
  return (std::uint64_t{loadBigEndian<std::uint32_t>(span)} + 0xFFFFFFFFU + carry) >> 32U;
}

} // namespace

// The working values of consecutive rounds, all of them here, so that they are wiped at the end of a member.
struct kroFipsRngSha1::Round {
  explicit Round(kroFipsRngSha1 &generator) noexcept : generator_(generator) {
    key_.load(generator.xkey_, generator.xkeyLength_);
    SHA1_Init(&initial_);
  }
  ~Round() { OPENSSL_cleanse(this, sizeof *this); }
  Round(const Round &) = delete;
  Round &operator=(const Round &) = delete;

  // Only as many of XSEED's last bytes count as XKEY has, 64 at most.
  void setXSeed(const unsigned char *xseed, std::uint64_t length) noexcept {
    hasXSeed_ = xseed != nullptr && length != 0;
    if (hasXSeed_) {
      const std::size_t used = std::min<std::uint64_t>(length, kMaxXKeyBytes);
      xseed_.load(xseed + length - used, used);
    }
  }

  // Writes x = G(XVAL) to out and advances XKEY to (1 + XKEY + x) mod 2^b. Not inline, for cleanStack to reach its
  // frame.
  KR_NOINLINE void run(unsigned char *out) noexcept {
    sha_ = initial_;
    SHA1_Update(&sha_, hasXSeed_ ? addXSeed() : generator_.xkey_, SHA_CBLOCK);
    unsigned char *word = out;
    for (const SHA_LONG h : {sha_.h0, sha_.h1, sha_.h2, sha_.h3, sha_.h4}) {
      storeBigEndian<std::uint32_t>(word, h);
      word += kWordBytes;
    }
    key_.add(Number512{{pair(sha_.h3, sha_.h4), pair(sha_.h1, sha_.h2), sha_.h0}}, 1);
    key_.store(generator_.xkey_, generator_.xkeyLength_);
  }

private:
  static constexpr std::uint64_t pair(std::uint32_t high, std::uint32_t low) noexcept {
    return std::uint64_t{high} << 32U | low;
  }

  const unsigned char *addXSeed() noexcept {
    std::copy_n(generator_.xkey_, kMaxXKeyBytes, xval_.begin());
    sum_ = key_;
    sum_.add(xseed_, 0);
    sum_.store(xval_.data(), generator_.xkeyLength_);
    return xval_.data();
  }

  kroFipsRngSha1 &generator_;
  Number512 key_;
  Number512 xseed_;
  Number512 sum_;
  SHA_CTX initial_{}; // copied for each round, which is cheaper than SHA1_Init
  SHA_CTX sha_{};
  std::array<unsigned char, kMaxXKeyBytes> xval_{};
  bool hasXSeed_ = false;
};

// Computes fresh blocks for Generate and Iterate.
struct kroFipsRngSha1::Refill {
  static void run(kroFipsRngSha1 &generator, Round &round) noexcept {
    if (!generator.qMode_) {
      round.run(generator.block_ + kW1);
      return;
    }
    round.run(generator.block_ + kW0);
    round.run(generator.block_ + kW1);
    std::fill_n(generator.block_, kW0, static_cast<unsigned char>(0));
    generator.ModQ();
  }
};

kroFipsRngSha1::kroFipsRngSha1()
    : xkeyLength_(0), readPosition_(kBufferBytes), block_{}, xkey_{}, q_{}, qMode_(false) {}

kroFipsRngSha1::~kroFipsRngSha1() = default;

kroFipsRngSha1 &kroFipsRngSha1::operator=(const kroFipsRngSha1 &) = default;

void kroFipsRngSha1::Init(const unsigned char *seed, std::uint64_t len, const unsigned char *q) {
  const std::uint64_t usable = seed == nullptr ? 0 : std::min<std::uint64_t>(len, kMaxXKeyBytes);
  xkeyLength_ = usable - usable % kWordBytes;
  std::copy_n(seed, xkeyLength_, xkey_);
  // The quotient estimate of ModQ holds for a q with its top bit set only.
  if (q != nullptr && (q[0] & 0x80U) != 0) {
    std::copy_n(q, kQBytes, q_);
    qMode_ = true;
  }
  cleanStack(); // where the source of the seed may have left it
}

void kroFipsRngSha1::Generate(unsigned char *out, std::uint64_t len, const unsigned char *xseed,
                              std::uint64_t xseedlen) {
  if (out == nullptr || len == 0) {
    return;
  }
  if (xseed == nullptr) {
    xseedlen = 0;
  }
  Round round(*this);
  while (len > 0) {
    if (readPosition_ >= kBufferBytes) {
      round.setXSeed(xseed, xseedlen);
      Refill::run(*this, round);
      readPosition_ = kW1;
    }
    const std::uint64_t count = std::min<std::uint64_t>(len, kBufferBytes - readPosition_);
    std::copy_n(block_ + readPosition_, count, out);
    readPosition_ += count;
    out += count;
    len -= count;
    const std::uint64_t consumed = std::min(count, xseedlen);
    if (consumed != 0) {
      xseed += consumed;
      xseedlen -= consumed;
    }
  }
  cleanStack();
}

void kroFipsRngSha1::Iterate(const unsigned char *xseed, std::uint64_t len) {
  Round round(*this);
  round.setXSeed(xseed, len);
  Refill::run(*this, round);
  cleanStack();
}

void kroFipsRngSha1::DoRound(unsigned char *out, const unsigned char *xseed, std::uint64_t xseedlen) {
  Round round(*this);
  round.setXSeed(xseed, xseedlen);
  round.run(out);
  cleanStack();
}

KR_NOINLINE void kroFipsRngSha1::ModQ() {
  if (!qMode_) {
    return;
  }
  // 64-bit: q's top word may be FFFFFFFF.
  const std::uint64_t divisor = std::uint64_t{loadBigEndian<std::uint32_t>(q_)} + 1;
  for (std::size_t k = 0; k + kSpanBytes <= kBufferBytes; k += kWordBytes) {
    unsigned char *span = block_ + k;
    Reduce(span, quotient(loadBigEndian<std::uint64_t>(span), divisor));
    // The estimate never exceeds the true digit, and with q's top bit set it lacks 2 at most.
    Reduce(span, reaches(q_, span));
    Reduce(span, reaches(q_, span));
  }
}

// Not inline: a compiler that knows a digit for 0 or 1 may make a branch of it.
KR_NOINLINE void kroFipsRngSha1::Reduce(unsigned char *span, std::uint64_t qhat) {
  std::uint64_t multiplyCarry = 0;
  std::uint64_t complementCarry = 1; // subtracting is adding the complement and 1
  for (std::size_t at = kQBytes; at > 0; at -= kWordBytes) {
    const std::uint64_t product = qhat * loadBigEndian<std::uint32_t>(q_ + at - kWordBytes) + multiplyCarry;
    multiplyCarry = product >> 32U;
    const std::uint64_t sum =
        std::uint64_t{loadBigEndian<std::uint32_t>(span + at)} + static_cast<std::uint32_t>(~product) + complementCarry;
    complementCarry = sum >> 32U;
    storeBigEndian(span + at, static_cast<std::uint32_t>(sum));
  }
  const std::uint64_t top =
      std::uint64_t{loadBigEndian<std::uint32_t>(span)} + static_cast<std::uint32_t>(~multiplyCarry) + complementCarry;
  storeBigEndian(span, static_cast<std::uint32_t>(top));
}
