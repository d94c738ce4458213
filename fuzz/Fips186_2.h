// The FIPS 186-2 generator once more, straight from the standard, for the library's to be compared with.
#pragma once

#include "Fuzz.h"

#include <krOpenSSL/krHandles.h>

#include <openssl/sha.h>

#include <algorithm>
#include <array>

namespace krFuzz {

/// Appendix 3.1 with change notice 1, and G of Appendix 3.3, in OpenSSL's big numbers.
class Fips186_2 {
public:
  static constexpr std::size_t kBlockBytes = 20;

  void init(const Bytes &seed, const Bytes &q = {}) {
    length_ = std::min<std::size_t>(seed.size(), xkey_.size()) / 4 * 4;
    std::copy_n(seed.begin(), length_, xkey_.begin());
    if (!q.empty() && q[0] >= 0x80) {
      q_ = q;
    }
  }

  Bytes generate(std::size_t length, Bytes xseed = {}) {
    Bytes out;
    for (std::size_t k = 0; k < length; ++k) {
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
    if (q_.empty()) {
      block_ = w;
      return;
    }
    const Bytes w1 = round(xseed);
    w.insert(w.end(), w1.begin(), w1.end());
    const Scope scope;
    BIGNUM *x = number(w.data(), w.size());
    BN_mod(x, x, number(q_.data(), q_.size()), scope.context);
    block_.assign(kBlockBytes, 0);
    BN_bn2binpad(x, block_.data(), static_cast<int>(kBlockBytes));
  }

private:
  // Numbers live as long as the step that makes them.
  struct Scope {
    Scope() { BN_CTX_start(context); }
    ~Scope() { BN_CTX_end(context); }
    Scope(const Scope &) = delete;
    Scope &operator=(const Scope &) = delete;
    static inline BN_CTX *const context = BN_CTX_new();
  };

  static BIGNUM *number(const unsigned char *bytes, std::size_t length) {
    return BN_bin2bn(bytes, static_cast<int>(length), BN_CTX_get(Scope::context));
  }

  // Modulo 2^b; the bytes of an XKEY behind the first b bits are the ones that were there before.
  void store(BIGNUM *sum, std::array<unsigned char, 64> &to) const {
    if (BN_num_bits(sum) > 8 * static_cast<int>(length_)) {
      BN_mask_bits(sum, 8 * static_cast<int>(length_));
    }
    BN_bn2binpad(sum, to.data(), static_cast<int>(length_));
  }

  Bytes round(const Bytes &xseed) {
    const Scope scope;
    BIGNUM *key = number(xkey_.data(), length_);
    BIGNUM *sum = number(xseed.data(), xseed.size());
    BN_add(sum, sum, key);
    std::array<unsigned char, 64> xval = xkey_;
    store(sum, xval);

    SHA_CTX sha;
    SHA1_Init(&sha);
    SHA1_Transform(&sha, xval.data());
    Bytes x;
    for (const SHA_LONG h : {sha.h0, sha.h1, sha.h2, sha.h3, sha.h4}) {
      for (const unsigned shift : {24U, 16U, 8U, 0U}) {
        x.push_back(static_cast<unsigned char>(h >> shift & 0xFFU));
      }
    }
    BN_add(key, key, number(x.data(), x.size()));
    BN_add_word(key, 1);
    store(key, xkey_);
    return x;
  }

  std::array<unsigned char, 64> xkey_{};
  std::size_t length_ = 0;
  Bytes q_;
  Bytes block_ = Bytes(kBlockBytes);
  std::size_t at_ = kBlockBytes;
};

} // namespace krFuzz
