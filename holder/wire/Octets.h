// Numbers and bytes of a frame, one after the other: what is read is never beyond the end.
#pragma once

#include "Message.h"

#include <array>
#include <concepts>

namespace krHolder {

/// A number as frames have it: most significant byte first.
template <std::unsigned_integral Number> std::array<unsigned char, sizeof(Number)> octetsOf(Number value) {
  std::array<unsigned char, sizeof(Number)> octets;
  for (std::size_t at = octets.size(); at-- > 0; value = static_cast<Number>(value >> 7U >> 1U)) {
    octets[at] = static_cast<unsigned char>(value);
  }
  return octets;
}

class Writer {
public:
  Writer() { bytes_.reserve(kUsualBytes); }

  template <std::unsigned_integral Number> Writer &number(Number value) { return bytes(octetsOf(value)); }
  template <class Enumeration> Writer &code(Enumeration value) { return number(static_cast<std::uint8_t>(value)); }
  Writer &bytes(View view) {
    bytes_.insert(bytes_.end(), view.begin(), view.end());
    return *this;
  }

  Bytes take() && { return std::move(bytes_); }

private:
  static constexpr std::size_t kUsualBytes = 512; // growing wipes and copies

  Bytes bytes_;
};

/// After the first thing that was not there, everything else is zero or empty, and whole() is false.
class Reader {
public:
  explicit Reader(View bytes) : rest_(bytes) {}

  template <std::unsigned_integral Number> Number number() {
    Number value = 0;
    for (const unsigned char byte : take(sizeof(Number))) {
      value = static_cast<Number>((value << 7U << 1U) | byte);
    }
    return value;
  }

  /// A number from @p first to @p last.
  template <class Enumeration> Enumeration code(Enumeration first, Enumeration last) {
    const auto value = number<std::uint8_t>();
    good_ = good_ && value >= static_cast<std::uint8_t>(first) && value <= static_cast<std::uint8_t>(last);
    return good_ ? static_cast<Enumeration>(value) : first;
  }

  View take(std::size_t count) {
    good_ = good_ && count <= rest_.size();
    const View taken = rest_.first(good_ ? count : 0);
    rest_ = rest_.subspan(taken.size());
    return taken;
  }

  View rest() { return take(rest_.size()); }

  /// Whether everything was there, and nothing is left.
  bool whole() const { return good_ && rest_.empty(); }

private:
  View rest_;
  bool good_ = true;
};

} // namespace krHolder
