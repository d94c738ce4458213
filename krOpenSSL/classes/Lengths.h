// Narrowing the 64-bit lengths of the exported classes.
#pragma once

#include <cstdint>
#include <limits>
#include <optional>

namespace krOpenSSL {

/// A length as OpenSSL's int, unless it does not fit.
constexpr std::optional<int> intLength(std::uint64_t length) noexcept {
  if (length > static_cast<std::uint64_t>(std::numeric_limits<int>::max())) {
    return std::nullopt;
  }
  return static_cast<int>(length);
}

/// Whether @p data can be read for @p length bytes: null has none.
constexpr bool isReadable(const unsigned char *data, std::uint64_t length) noexcept {
  return data != nullptr || length == 0;
}

} // namespace krOpenSSL
