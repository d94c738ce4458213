// Big-endian numbers in byte buffers, and sums of numbers of up to 512 bits in machine words.
#pragma once

#include <array>
#include <bit>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <cstring>
#ifdef _MSC_VER
#include <cstdlib>
#endif

namespace krOpenSSL {

// std::byteswap is C++23.
#ifdef _MSC_VER
inline std::uint32_t swapBytes(std::uint32_t word) noexcept { return _byteswap_ulong(word); }
inline std::uint64_t swapBytes(std::uint64_t word) noexcept { return _byteswap_uint64(word); }
#else
constexpr std::uint32_t swapBytes(std::uint32_t word) noexcept { return __builtin_bswap32(word); }
constexpr std::uint64_t swapBytes(std::uint64_t word) noexcept { return __builtin_bswap64(word); }
#endif

/// Turns a word from the host's byte order to big-endian, or back.
template <std::unsigned_integral Word> Word bigEndian(Word word) noexcept {
  if constexpr (std::endian::native == std::endian::big) {
    return word;
  } else {
    return swapBytes(word);
  }
}

template <std::unsigned_integral Word> Word loadBigEndian(const unsigned char *bytes) noexcept {
  Word word;
  std::memcpy(&word, bytes, sizeof word);
  return bigEndian(word);
}

template <std::unsigned_integral Word> void storeBigEndian(unsigned char *bytes, Word word) noexcept {
  word = bigEndian(word);
  std::memcpy(bytes, &word, sizeof word);
}

/// Stores two words at once, as wide as the SHA-1 compression loads them: a wide load that follows narrow
/// stores would wait for them.
inline void storePair(unsigned char *bytes, std::uint64_t high, std::uint64_t low) noexcept {
#ifdef _MSC_VER
  const std::array<std::uint64_t, 2> pair{bigEndian(high), bigEndian(low)};
#else
  using Pair [[gnu::vector_size(16)]] = std::uint64_t;
  const Pair pair{bigEndian(high), bigEndian(low)};
#endif
  std::memcpy(bytes, &pair, sizeof pair);
}

/// A number of up to 512 bits, least significant word first; what carries out of it is dropped.
struct Number512 {
  static constexpr std::size_t kBytes = 64;
  std::array<std::uint64_t, kBytes / sizeof(std::uint64_t)> words{};

  /// Reads a big-endian number of at most 64 bytes, straight into the words: it may be a secret.
  void load(const unsigned char *bytes, std::size_t length) noexcept {
    for (std::uint64_t &word : words) {
      if (length >= sizeof word) {
        length -= sizeof word;
        word = loadBigEndian<std::uint64_t>(bytes + length);
      } else {
        word = 0;
        for (std::size_t i = 0; i < length; ++i) {
          word = word << 8U | bytes[i];
        }
        length = 0;
      }
    }
  }

  /// Writes the number modulo 2^(8 * length), big-endian; @p length is a multiple of 4, at most 64.
  void store(unsigned char *bytes, std::size_t length) const noexcept {
    if (length == kBytes) {
      for (std::size_t k = 0; k < words.size(); k += 2) {
        storePair(bytes + kBytes - (k + 2) * sizeof(std::uint64_t), words[k + 1], words[k]);
      }
      return;
    }
    std::size_t i = 0;
    for (; length >= sizeof(std::uint64_t); ++i) {
      length -= sizeof(std::uint64_t);
      storeBigEndian(bytes + length, words[i]);
    }
    if (length != 0) {
      storeBigEndian(bytes, static_cast<std::uint32_t>(words[i]));
    }
  }

  /// In place, word by word: a copy of the whole number would wait for its words to be stored.
  void add(const Number512 &addend, std::uint64_t carry) noexcept {
    for (std::size_t i = 0; i < words.size(); ++i) {
      const std::uint64_t sum = words[i] + addend.words[i];
      const std::uint64_t total = sum + carry;
      carry = static_cast<std::uint64_t>(sum < addend.words[i]) | static_cast<std::uint64_t>(total < sum);
      words[i] = total;
    }
  }
};

} // namespace krOpenSSL
