/// @file
/// The crypto classes without their traps: digests, MACs, AES-CBC, sealing, key wrap and random bytes for C++ callers.
/// It is the door for new code. Header only, over the exports and OpenSSL; it adds no symbol to the library.
///
///     const auto sum = digest<kroSHA256>(data);           // std::array<unsigned char, 32>
///     const auto tag = mac<kroSHA256>(key, data);
///     const bool good = verifyMac<kroSHA256>(key, data, tag);
///     const auto keys = SealKeys<256>::random();
///     const std::vector<unsigned char> sealed = seal(keys, data, "to Alice");
///     const std::optional<SecretBytes> text = open(keys, sealed, "to Alice"); // empty: not what was sealed
///     const std::vector<unsigned char> wrapped = wrapKey(kek, key);
///     const std::optional<SecretBytes> unwrapped = unwrapKey(kek, wrapped);   // empty: not what was wrapped
///
/// **Answers.** What comes back is whole and computed, or CryptoError is thrown, or std::bad_alloc without memory. What
/// an outsider may have damaged, as a MAC or a sealed text, is answered by false or by an empty optional instead.
/// OpenSSL's reasons for a CryptoError, where it has any, stay on the calling thread's error queue.
///
/// **Failures.** The classes of kroHash.h, kroHMAC.h and kroCiphers.h write all or nothing, and say nothing. So each
/// output is filled before with bytes of one value. When nothing else comes back, the work is done once more over
/// another value, and when that stays, too, it has failed: a failure is never missed, and none is seen where there
/// was none. Two kinds of work cannot be done twice, and throw for a result that is what was there before: Digest and
/// Mac, and encryption, which takes the place of its text. No failure is missed there either; one is seen where there
/// was none with a probability of 2^-128 (of MD5, AES; less for the longer digests), unless somebody who chooses both
/// text and initial value aims at it with what was encrypted under that key before.
///
/// **Threads.** Functions are safe from any thread, objects serve one thread at a time.
///
/// **Modes.** A function works in the mode in which it is called, for which calls and switches are to be kept apart, as
/// krFips.h says. A Digest or a Mac belongs to the mode, the provider, and the state of the external FIPS module, that
/// it was made in: after a change of them its next call throws, and so do all that follow, since the class behind it
/// may have left out what was fed meanwhile. A change that was taken back before the next call is not noticed: nothing
/// was fed in between.
///
/// **Lengths.** Any length that memory holds: what the classes take below 2^31 bytes only is fed to them in pieces. A
/// MAC's key has from 1 to 2^31 - 1 bytes, in FIPS mode from 14 (SP 800-131A); key data to wrap have from 8 to 2^31 -
/// 16, a multiple of 8, and a FIPS module may want 16. Empty data are data; an empty key is refused, since everybody
/// has it.
///
/// A key before what it works on, always: the type tells the two apart for AES, and for key wrap unless the key to wrap
/// has a fixed size too; it cannot for a MAC, whose key is any bytes. What an external FIPS module answers when it is
/// given a MAC's key and data is not heard by the classes: one that goes on without what it refused is not noticed here
/// either, and its MAC is another's.
///
/// **Trace.** HMAC, AES and key wrap write lines to the program's standard output, as the classes do, unless
/// KR_TRACE=off stands in the environment.
///
/// Results are new memory, so nothing overlaps. MD4, triple DES and RC4 are not here; MD5 and SHA-1 are for formats
/// that prescribe them.
#pragma once

#include <krOpenSSL/detail/hashes.hpp>
#include <krOpenSSL/krBytes.hpp>
#include <krOpenSSL/kroHMAC.h>
#include <krOpenSSL/kroHash.h>

#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <optional>

namespace krOpenSSL {

/// The digest classes of this layer: kroMD5, kroSHA1, kroSHA224, kroSHA256, kroSHA384, kroSHA512.
template <class T>
concept HashClass = detail::hasFacts<T>();

/// The length of a digest and of its MAC.
template <HashClass T> inline constexpr std::size_t kDigestBytes = detail::kFacts<T>.digestBytes;
/// The length of the blocks that a digest works on. A MAC's key that is longer is hashed first.
template <HashClass T> inline constexpr std::size_t kBlockBytes = detail::kFacts<T>.blockBytes;
/// The standard's name, as "SHA-256".
template <HashClass T> inline constexpr std::string_view kName = detail::kFacts<T>.name;
/// Whether FIPS mode has the digest.
template <HashClass T> inline constexpr bool kSupportsFips = detail::kFacts<T>.supportsFips;

/// @name Digests
///@{

/// The digest of @p data.
template <HashClass T> [[nodiscard]] std::array<unsigned char, kDigestBytes<T>> digest(ByteView data);

/// A digest of data that come in pieces. Copies are deep, and a move copies.
template <HashClass T> class Digest {
public:
  Digest() { hash_.Init(); }

  /// Takes in the next piece.
  /// @return the object
  Digest &update(ByteView data);

  /// The digest of all that was taken in. The object is at its end then: another call throws.
  [[nodiscard]] std::array<unsigned char, kDigestBytes<T>> final();

private:
  detail::Life life_;
  T hash_;
};

/// Hears how many bytes of how many have been read: of 0 where nobody knows how many, of fewer where the file grew.
/// What it throws ends the reading.
using Progress = std::function<void(std::uintmax_t done, std::uintmax_t all)>;

/// Hands a file's content on in pieces of 256 KiB, the last one shorter, from memory that is wiped.
/// @param file      what to read
/// @param take      gets a piece, which is there during the call; not empty. What it throws ends the reading
/// @param progress  hears of it after each piece
/// @throws CryptoError for what cannot be opened, and for what cannot be read to its end
inline void readInPieces(const std::filesystem::path &file, const std::function<void(ByteView piece)> &take,
                         const Progress &progress = {});

/// The digest of a file's content.
/// @throws CryptoError as readInPieces does, too
template <HashClass T>
[[nodiscard]] std::array<unsigned char, kDigestBytes<T>> digestFile(const std::filesystem::path &file,
                                                                    const Progress &progress = {});
///@}

/// @name MACs: HMAC (RFC 2104)
///@{

/// A MAC, to be compared with ==.
template <HashClass T> using MacTag = SecretArray<kDigestBytes<T>>;

/// The MAC of @p data.
template <HashClass T> [[nodiscard]] MacTag<T> mac(ByteView key, ByteView data);

/// Whether @p tag is the whole MAC of @p data, in constant time; false also where the MAC could not be computed.
template <HashClass T> [[nodiscard]] bool verifyMac(ByteView key, ByteView data, ByteView tag) noexcept;

/// A MAC of data that come in pieces. It is neither copied nor moved, as its key is not to be.
template <HashClass T> class Mac {
public:
  /// @param key  is not needed after this call
  explicit Mac(ByteView key);
  ~Mac() = default;
  Mac(const Mac &) = delete;
  Mac &operator=(const Mac &) = delete;

  /// Takes in the next piece.
  /// @return the object
  Mac &update(ByteView data);

  /// The MAC of all that was taken in. The object is at its end then: another call throws.
  [[nodiscard]] MacTag<T> final();

  /// Whether @p tag is the whole MAC of all that was taken in, in constant time; false also where it could not be
  /// computed. The object is at its end then.
  [[nodiscard]] bool verify(ByteView tag) noexcept;

private:
  void finish(std::span<unsigned char, kDigestBytes<T>> out);

  detail::Life life_;
  kroHMAC<T> hmac_;
};
///@}

/// @name Random bytes
///
/// The operating system's; in FIPS mode those of OpenSSL's RAND_priv_bytes, which come from the provider.
///@{

/// @p count random bytes.
[[nodiscard]] inline SecretBytes randomBytes(std::size_t count);

/// As many random bytes as the type says: a key, or an initial value.
template <std::size_t Size> [[nodiscard]] SecretArray<Size> randomBytes();
///@}

/// The lengths of AES keys: 128, 192 and 256 bits.
template <unsigned Bits>
concept AesBits = Bits == 128 || Bits == 192 || Bits == 256;

/// The length of AES's blocks, and of an initial value.
inline constexpr std::size_t kAesBlockBytes = 16;

/// @name Sealing: for everyday use
///
/// A sealed text, version 1:
///
/// | bytes    | what                                                                                          |
/// |----------|-----------------------------------------------------------------------------------------------|
/// | 1        | the version, 1                                                                                |
/// | 1        | the bytes of the AES key: 16, 24 or 32                                                        |
/// | 16       | a random initial value                                                                        |
/// | 16n      | the text with 1 to 16 bytes of PKCS#7 padding, by AES-CBC (SP 800-38A) under the first key    |
/// | 32       | the tag: HMAC-SHA-256 under the second key                                                    |
///
/// The tag is over the first 18 bytes, the number of bytes of associated data as 8 bytes (the most significant first),
/// the associated data, and the encrypted text. All that is 51 to 66 bytes more than the text, whose length is not
/// hidden. That a sealed text comes twice, late, or never is not noticed, unless the associated data number them.
///@{

/// The two keys of a sealed text, as one: first of encryption, then the 32 bytes of authentication. Wiped when it goes.
template <unsigned Bits>
requires AesBits<Bits>
class SealKeys {
public:
  static constexpr std::size_t kBytes = Bits / 8 + 32; ///< 48, 56 or 64

  /// @param bytes  secret and random, of these keys alone
  explicit SealKeys(const SecretArray<kBytes> &bytes) noexcept : bytes_(bytes) {}

  /// New keys.
  [[nodiscard]] static SealKeys random() { return SealKeys(randomBytes<kBytes>()); }

  /// The bytes, to be kept where secrets are.
  [[nodiscard]] const SecretArray<kBytes> &bytes() const &noexcept { return bytes_; }
  const SecretArray<kBytes> &bytes() const && = delete; ///< they end with the object

private:
  SecretArray<kBytes> bytes_;
};

/// Encrypts and authenticates @p data under a new random initial value, and authenticates @p associated with them,
/// which are not part of the result. Keys are good for 2^48 blocks of 16 bytes in all.
template <unsigned Bits>
[[nodiscard]] std::vector<unsigned char> seal(const SealKeys<Bits> &keys, ByteView data, ByteView associated = {});

/// The text, after it has been verified; nothing is decrypted before.
/// @return nothing unless @p sealed is what was sealed with these keys and @p associated
template <unsigned Bits>
[[nodiscard]] std::optional<SecretBytes> open(const SealKeys<Bits> &keys, ByteView sealed, ByteView associated = {});
///@}

/// @name AES-CBC (SP 800-38A) with PKCS#7 padding
///
/// For formats that prescribe it: it is not authenticated. Whoever sees which encrypted texts decryptCbc takes, by an
/// answer or by its time, can decrypt: verify a MAC of the encrypted text first, or use seal and open.
///@{

/// An initial value, named. Where keys have 16 bytes, too, it has to be, so that the two are not exchanged.
struct CbcIv {
  explicit CbcIv(const SecretArray<kAesBlockBytes> &iv) noexcept : bytes(iv) {} ///< @p iv as one

  SecretArray<kAesBlockBytes> bytes; ///< its bytes
};

/// What an initial value is given as: CbcIv beside keys of 128 bits, 16 bytes or CbcIv beside others.
template <unsigned Bits> struct CbcIvOf {
  CbcIvOf(const CbcIv &iv) noexcept : bytes(iv.bytes) {} ///< from one that is named
  /// From 16 bytes.
  CbcIvOf(const std::convertible_to<SecretArray<kAesBlockBytes>> auto &iv) noexcept requires(Bits != 128) : bytes(iv) {}

  SecretArray<kAesBlockBytes> bytes; ///< its bytes
};

/// Encrypts @p data with padding.
/// @param key   Bits / 8 bytes
/// @param iv    16 bytes that nobody can foretell, as randomBytes<16>(); never the same twice under a key
/// @param data  the text
/// @return 1 to 16 bytes more than @p data, whole blocks
template <unsigned Bits>
requires AesBits<Bits>
[[nodiscard]] std::vector<unsigned char> encryptCbc(const SecretArray<Bits / 8> &key, const CbcIvOf<Bits> &iv,
                                                    ByteView data);

/// The inverse of encryptCbc.
/// @return nothing for data that are not whole blocks, one at least, and for a padding that is none
template <unsigned Bits>
requires AesBits<Bits>
[[nodiscard]] std::optional<SecretBytes> decryptCbc(const SecretArray<Bits / 8> &key, const CbcIvOf<Bits> &iv,
                                                    ByteView data);
///@}

/// @name AES key wrap (RFC 3394)
///@{

/// A key-encryption key: 16, 24 or 32 bytes, as the type says.
template <class T>
concept KeyEncryptionKey = std::convertible_to<const T &, SecretArray<16>> ||
    std::convertible_to<const T &, SecretArray<24>> || std::convertible_to<const T &, SecretArray<32>>;

/// Wraps key data under the default initial value.
/// @return 8 bytes more than @p key
[[nodiscard]] inline std::vector<unsigned char> wrapKey(const KeyEncryptionKey auto &kek, ByteView key);

/// The inverse of wrapKey.
/// @return nothing unless @p wrapped is what was wrapped under this key
[[nodiscard]] inline std::optional<SecretBytes> unwrapKey(const KeyEncryptionKey auto &kek, ByteView wrapped);
///@}

} // namespace krOpenSSL

#include <krOpenSSL/detail/crypto.hpp>
