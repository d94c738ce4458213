// Big numbers on their way into the FIPS module and back, in buffers that are wiped before they go.
#pragma once

#include "state/FipsModule.h"

#include <krOpenSSL/krHandles.h>

#include <array>
#include <initializer_list>

namespace krOpenSSL {

/// What is in the way of a key's load; any other code is the module's own.
inline constexpr int kNothingToLoad = -53; ///< a number without bytes, or an object without a cell
inline constexpr int kNoMemoryToLoad = -55;

/// The bytes that hold so many bits.
constexpr FipsModule::Length bytesFor(FipsModule::Length bits) noexcept { return (bits + 7) / 8; }

/// A block of OpenSSL's allocator.
class WipedBytes {
public:
  WipedBytes() noexcept = default;
  ~WipedBytes() { OPENSSL_clear_free(data_, static_cast<std::size_t>(size_)); }
  WipedBytes(const WipedBytes &) = delete;
  WipedBytes &operator=(const WipedBytes &) = delete;

  /// Takes a block of zeros, once; false without memory and for a size that is not positive.
  bool allocate(FipsModule::Length size) noexcept;
  unsigned char *data() const noexcept { return data_; }
  FipsModule::Length size() const noexcept { return size_; }

private:
  unsigned char *data_ = nullptr;
  FipsModule::Length size_ = 0;
};

/// A number as the module takes it; null and 0 while there is none.
class ExportedNumber {
public:
  /// Takes the bytes of a number, none of null. Returns 0, kNothingToLoad or kNoMemoryToLoad.
  int take(const BIGNUM *number) noexcept;
  const unsigned char *bytes() const noexcept { return bytes_.data(); }
  FipsModule::Length length() const noexcept { return bytes_.size(); }

private:
  WipedBytes bytes_;
};

struct NumberExport {
  ExportedNumber &to;
  const BIGNUM *from;
};

/// Exports the numbers in their order, up to the first that fails; returns its code, or 0.
int exportNumbers(std::initializer_list<NumberExport> numbers) noexcept;

/// A number that the module writes.
class ReturnedNumber {
public:
  bool allocate(FipsModule::Length capacity) noexcept;
  unsigned char *buffer() noexcept { return bytes_.data(); }
  FipsModule::Capacity length() noexcept { return &length_; } ///< the capacity until the module has written

  /// The number; null without memory, or when the module claims to have written what cannot be there.
  /// @param like  whose protection it gets: secure memory, constant time
  BIGNUMPtr number(const BIGNUM *like = nullptr) const noexcept;

private:
  WipedBytes bytes_;
  FipsModule::Length length_ = 0;
};

/// Gives each number a buffer of that size; false when one is missing.
template <std::size_t Count>
bool allocateAll(std::array<ReturnedNumber, Count> &numbers, FipsModule::Length capacity) noexcept {
  bool all = true;
  for (ReturnedNumber &number : numbers) {
    all = all && number.allocate(capacity);
  }
  return all;
}

} // namespace krOpenSSL
