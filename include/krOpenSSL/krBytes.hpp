/// @file
/// Bytes for krCrypto.hpp: views of what goes in, buffers that are wiped, and hexadecimal text. Header only.
#pragma once

#include <krOpenSSL/krOpenSSLVersion.h>

#include <openssl/crypto.h>

#include <algorithm>
#include <array>
#include <concepts>
#include <cstddef>
#include <memory>
#include <ranges>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

namespace krOpenSSL {

/// What krCrypto.hpp throws where the library or OpenSSL could not do its work, or was asked for what nobody can do.
/// Its text is constant: it has no byte of a key, a message or a result.
class CryptoError : public std::runtime_error {
public:
  using std::runtime_error::runtime_error;
};

namespace detail {

template <class T, class... Of>
concept OneOf = (std::same_as<std::remove_cv_t<T>, Of> || ...);
template <class T>
concept BinaryByte = OneOf<T, unsigned char, std::byte>;
template <class T>
concept AnyByte = BinaryByte<T> || OneOf<T, char, signed char, char8_t>;
// An array of char is a text with a zero at its end, or bytes without: nobody can tell.
template <class T>
concept ByteRange = std::ranges::contiguous_range<const T> && std::ranges::sized_range<const T> &&
    AnyByte<std::ranges::range_value_t<const T>> &&
    !(std::is_array_v<T> && OneOf<std::ranges::range_value_t<const T>, char, char8_t>);

} // namespace detail

/// Bytes to be read during a call: the parameter type for data. It comes of itself from std::span, std::vector,
/// std::array, std::string, std::string_view and arrays of unsigned char or std::byte, and from a literal, without the
/// zero at its end. Other arrays of char and bare pointers have to become a std::string_view or a std::span first.
class ByteView {
public:
  constexpr ByteView() noexcept = default; ///< of no bytes

  /// @param range  has to stay as it is while the view is in use
  template <detail::ByteRange Range>
  requires(!std::same_as<Range, ByteView>) constexpr ByteView(const Range &range) noexcept
      : data_(std::ranges::data(range)), size_(std::ranges::size(range)) {}

  /// @param literal  a text in quotes, or a constant array that ends with a zero; other arrays of char do not compile
  template <std::size_t Size> consteval ByteView(const char (&literal)[Size]) : data_(literal), size_(Size - 1) {
    if (literal[Size - 1] != '\0') {
      throw std::invalid_argument("not a literal");
    }
  }

  const unsigned char *data() const noexcept { return static_cast<const unsigned char *>(data_); } ///< the first byte
  constexpr std::size_t size() const noexcept { return size_; }                                    ///< how many
  constexpr bool empty() const noexcept { return size_ == 0; }                                     ///< whether none
  const unsigned char *begin() const noexcept { return data(); }                                   ///< for loops
  const unsigned char *end() const noexcept { return data() + size_; }                             ///< for loops

private:
  const void *data_ = nullptr;
  std::size_t size_ = 0;
};

/// Wipes memory before it is given back.
template <class T> struct WipingAllocator {
  using value_type = T; ///< what a container holds

  WipingAllocator() = default; ///< has no state
  /// Has no state.
  template <class U> constexpr WipingAllocator(const WipingAllocator<U> & /*other*/) noexcept {}

  /// Room for @p count objects.
  [[nodiscard]] T *allocate(std::size_t count) { return std::allocator<T>().allocate(count); }
  /// Wipes the room and gives it back.
  void deallocate(T *room, std::size_t count) noexcept {
    OPENSSL_cleanse(room, count * sizeof(T));
    std::allocator<T>().deallocate(room, count);
  }
  /// All are one.
  friend bool operator==(const WipingAllocator & /*one*/, const WipingAllocator & /*other*/) { return true; }
};

/// Bytes whose memory is wiped before it is given back: when they go, and when they outgrow it. What resize and clear
/// cut off stays in it until then. Compare secrets with CRYPTO_memcmp, not with ==.
using SecretBytes = std::vector<unsigned char, WipingAllocator<unsigned char>>;

/// As many bytes as the type says: an array that is wiped when it goes, and whose == takes the same time for all
/// contents. As a parameter it takes keys: it is made of itself from spans of fixed extent, std::array and arrays, of
/// unsigned char or std::byte and of that very size; from anything else, as from a vector, in so many words.
template <std::size_t Size> struct SecretArray : std::array<unsigned char, Size> {
  using Array = std::array<unsigned char, Size>; ///< what it is otherwise

  SecretArray() noexcept : Array{} {} ///< zeros
  /// From a span of fixed extent.
  template <detail::BinaryByte Byte>
  SecretArray(std::span<Byte, Size> bytes) noexcept : SecretArray(bytes.data(), Size) {}
  /// From an array of the standard library's.
  template <detail::BinaryByte Byte>
  SecretArray(const std::array<Byte, Size> &bytes) noexcept : SecretArray(bytes.data(), Size) {}
  /// From an array.
  template <detail::BinaryByte Byte>
  SecretArray(const Byte (&bytes)[Size]) noexcept : SecretArray(static_cast<const void *>(bytes), Size) {}
  /// From bytes whose number is only known when the program runs.
  /// @throws CryptoError when there are more or fewer
  explicit SecretArray(ByteView bytes) : SecretArray(bytes.data(), bytes.size()) {
    if (bytes.size() != Size) {
      throw CryptoError("a key or an initial value has another length than is needed");
    }
  }
  SecretArray(const SecretArray &) = default;            ///< moving is copying: each is wiped
  SecretArray &operator=(const SecretArray &) = default; ///< the same
  ~SecretArray() { OPENSSL_cleanse(this->data(), Size); }

  /// Whether they are the same.
  friend bool operator==(const SecretArray &one, const SecretArray &other) noexcept {
    return CRYPTO_memcmp(one.data(), other.data(), Size) == 0;
  }
  /// Whether they are the same.
  friend bool operator==(const SecretArray &one, const Array &other) noexcept {
    return CRYPTO_memcmp(one.data(), other.data(), Size) == 0;
  }

private:
  SecretArray(const void *bytes, std::size_t count) noexcept : Array{} {
    const auto *first = static_cast<const unsigned char *>(bytes);
    std::copy_n(first, count < Size ? count : Size, this->begin());
  }
};

/// The bytes as hexadecimal text, in small letters. It takes the same time whatever the bytes are; the text is not
/// wiped.
[[nodiscard]] inline std::string hex(ByteView bytes);

/// The same text as bytes that are wiped.
[[nodiscard]] inline SecretBytes secretHex(ByteView bytes);

/// The bytes that a hexadecimal text stands for, in letters of either size. It takes the same time whatever the
/// digits are.
/// @throws CryptoError for an odd number of digits, and for anything that is none
[[nodiscard]] inline SecretBytes unhex(std::string_view digits);

} // namespace krOpenSSL

#include <krOpenSSL/detail/bytes.hpp>
