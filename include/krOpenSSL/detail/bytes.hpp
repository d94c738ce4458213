/// @file
/// How krBytes.hpp reads and writes hexadecimal digits. Nothing here is for callers.
#pragma once

#include <krOpenSSL/krBytes.hpp>

namespace krOpenSSL {

namespace detail {

/// All ones when @p number is below @p limit, else 0: without a branch, which would tell of a key's digits. Both are
/// small.
constexpr unsigned below(unsigned number, unsigned limit) noexcept { return 0U - ((number - limit) >> 31U); }

constexpr char hexDigit(unsigned value) noexcept {
  return static_cast<char>(value + (below(value, 10) & '0') + (~below(value, 10) & ('a' - 10)));
}

/// The digit's value; 16 for what is no digit.
constexpr unsigned hexValue(char digit) noexcept {
  const unsigned code = static_cast<unsigned char>(digit);
  const unsigned number = (code - '0') & 0xFFU;
  const unsigned letter = ((code | 0x20U) - 'a') & 0xFFU;
  const unsigned isNumber = below(number, 10);
  const unsigned isLetter = below(letter, 6);
  return (number & isNumber) | ((letter + 10) & isLetter) | (16U & ~(isNumber | isLetter));
}

} // namespace detail

inline SecretBytes secretHex(ByteView bytes) {
  SecretBytes text;
  text.reserve(bytes.size() * 2);
  for (const unsigned byte : bytes) {
    text.push_back(static_cast<unsigned char>(detail::hexDigit(byte >> 4U)));
    text.push_back(static_cast<unsigned char>(detail::hexDigit(byte & 0xFU)));
  }
  return text;
}

inline std::string hex(ByteView bytes) {
  const SecretBytes text = secretHex(bytes);
  return {text.begin(), text.end()};
}

inline SecretBytes unhex(std::string_view digits) {
  SecretBytes bytes(digits.size() / 2);
  unsigned wrong = digits.size() % 2;
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    const unsigned high = detail::hexValue(digits[2 * i]);
    const unsigned low = detail::hexValue(digits[2 * i + 1]);
    wrong |= (high | low) >> 4U;
    bytes[i] = static_cast<unsigned char>(high << 4U | (low & 0xFU));
  }
  if (wrong != 0) {
    throw CryptoError("this is no hexadecimal text");
  }
  return bytes;
}

} // namespace krOpenSSL
