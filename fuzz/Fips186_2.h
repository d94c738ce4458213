// The FIPS 186-2 generator once more, straight from the standard, for the library's to be compared with.
#pragma once

#include "Fuzz.h"

#include <openssl/sha.h>

namespace krFuzz {

/// Appendix 3.1 with change notice 1, and G of Appendix 3.3.
class Fips186_2 {
public:
  static constexpr std::size_t kBlockBytes = 20;

  void init(const Bytes &seed, const Bytes &q = {}) {
    length_ = std::min(seed.size(), kSeedBytes) / 4 * 4;
    std::copy_n(seed.begin(), length_, xkey_.begin());
    if (!q.empty() && q[0] >= 0x80) {
      q_ = q;
    }
  }

  Bytes generate(std::size_t length, Bytes xseed = {}) {
    Bytes out;
    while (out.size() < length) {
      if (at_ == kBlockBytes) {
        iterate(xseed);
        at_ = 0;
      }
      out.push_back(block_[at_++]);
      xseed.erase(xseed.begin(), xseed.begin() + (xseed.empty() ? 0 : 1));
    }
    return out;
  }

  void iterate(const Bytes &xseed) {
    Bytes w = round(xseed);
    if (!q_.empty()) {
      const Bytes second = round(xseed);
      w.insert(w.end(), second.begin(), second.end());
      const krOpenSSL::BIGNUMPtr x(numberOf(w));
      const krOpenSSL::BIGNUMPtr q(numberOf(q_));
      static BN_CTX *const context = BN_CTX_new();
      BN_mod(x.get(), x.get(), q.get(), context);
      w.resize(kBlockBytes);
      BN_bn2binpad(x.get(), w.data(), static_cast<int>(kBlockBytes));
    }
    block_ = w; // of which as much is used up as of the one before
  }

private:
  static constexpr std::size_t kSeedBytes = 64;

  // To the first bytes, modulo 2^b.
  void add(Bytes &to, const Bytes &number, unsigned carry = 0) const {
    for (std::size_t i = 1; i <= length_; ++i) {
      carry += to[length_ - i] + (i <= number.size() ? number[number.size() - i] : 0U);
      to[length_ - i] = static_cast<unsigned char>(carry);
      carry >>= 8U;
    }
  }

  Bytes round(const Bytes &xseed) {
    Bytes xval = xkey_;
    add(xval, xseed);
    SHA_CTX sha;
    SHA1_Init(&sha);
    SHA1_Transform(&sha, xval.data());
    Bytes x;
    for (const SHA_LONG h : {sha.h0, sha.h1, sha.h2, sha.h3, sha.h4}) {
      for (const unsigned shift : {24U, 16U, 8U, 0U}) {
        x.push_back(static_cast<unsigned char>(h >> shift));
      }
    }
    add(xkey_, x, 1);
    return x;
  }

  Bytes xkey_ = Bytes(kSeedBytes);
  std::size_t length_ = 0;
  Bytes q_;
  Bytes block_ = Bytes(kBlockBytes);
  std::size_t at_ = kBlockBytes;
};

} // namespace krFuzz
