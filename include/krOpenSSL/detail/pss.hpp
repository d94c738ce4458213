/// @file
/// What a padded block tells of how it was made. Nothing here is for callers.
#pragma once

#include <krOpenSSL/krHandles.h>

#include <openssl/objects.h>

#include <algorithm>
#include <functional>
#include <iterator>
#include <span>
#include <vector>

namespace krOpenSSL::detail {

/// A block without its mask begins with zeros up to a 1 (RFC 8017, 9.1.1). As many zero bytes are no chance: a salt
/// that leaves fewer is not recognised.
inline constexpr std::size_t kSureZeros = 8;

inline constexpr int kUnknownSaltLength = -1;

/// The salt's length when EMSA-PSS made the block with this hash, for its mask too; kUnknownSaltLength when not.
inline int saltLengthWith(const EVP_MD *hash, std::span<const unsigned char> block, int keyBits) {
  constexpr unsigned char kTrailer = 0xbc;
  const auto encodedBytes = static_cast<std::size_t>(keyBits + 6) / 8; // of a number with a bit less than the modulus
  const auto hashBytes = static_cast<std::size_t>(EVP_MD_size(hash));
  if (block.size() < encodedBytes || encodedBytes < hashBytes + kSureZeros + 2 || block.back() != kTrailer) {
    return kUnknownSaltLength;
  }
  const auto encoded = block.last(encodedBytes);
  const auto masked = encoded.first(encodedBytes - hashBytes - 1);
  std::vector<unsigned char> data(masked.size());
  if (PKCS1_MGF1(data.data(), static_cast<long>(data.size()), &encoded[masked.size()], static_cast<long>(hashBytes),
                 hash) != 0) {
    return kUnknownSaltLength;
  }
  std::ranges::transform(data, masked, data.begin(), std::bit_xor<unsigned char>());
  data.front() &= static_cast<unsigned char>(0xffU >> (encodedBytes * 8 - static_cast<std::size_t>(keyBits - 1)));
  const auto end = std::ranges::find_if(data, [](unsigned char byte) { return byte != 0; });
  const bool found = std::distance(data.begin(), end) >= static_cast<std::ptrdiff_t>(kSureZeros) && end != data.end();
  return found && *end == 1 ? static_cast<int>(std::distance(end, data.end())) - 1 : kUnknownSaltLength;
}

/// How a block was padded.
struct PssPadding {
  int hash; ///< for its mask too
  int saltLength;
};

inline PssPadding pssPadding(std::span<const unsigned char> block, int keyBits) {
  for (const int hash : {NID_sha256, NID_sha384, NID_sha512, NID_sha1, NID_sha224}) {
    const int saltLength = saltLengthWith(EVP_get_digestbynid(hash), block, keyBits);
    if (saltLength != kUnknownSaltLength) {
      return {hash, saltLength};
    }
  }
  return {NID_undef, kUnknownSaltLength};
}

} // namespace krOpenSSL::detail
