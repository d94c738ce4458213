/// @file
/// AES-CBC (FIPS 197, SP 800-38A), triple-DES-CBC (SP 800-67) and RC4, without padding.
/// New code enters by krCrypto.hpp, which answers whole or throws; these classes report nothing.
///
/// CBC gives no integrity, and triple DES and RC4 are broken for new designs; they are here for the formats
/// that prescribe them.
///
///     kroAESCipher<256>::Encrypt(out, iv, key, in, 64); // note the order: IV before key, output first
///     kroRC4 stream(key, keyLength);
///     stream.Transform(out, in, length);
#pragma once

#include <krOpenSSL/krExport.h>

#include <cstdint>

struct evp_cipher_ctx_st;

/// AES in CBC mode with a key of Bits bits: 128, 192 or 256.
///
/// Each call stands alone: the IV is not carried on. Whole blocks are transformed and no padding is added or
/// removed; the bytes of a trailing partial block are not written. @p out may equal @p in. Nothing is
/// reported: null pointers, lengths of 2^31 bytes and more, and want of memory leave @p out as it was.
///
/// @note Safe from any thread. No member throws.
template <unsigned Bits> class KR_API kroAESCipher {
public:
  /// @param out  receives len bytes, rounded down to whole blocks of 16
  /// @param iv   16 bytes
  /// @param key  Bits / 8 bytes
  /// @param in   len bytes
  /// @param len  bytes at @p in
  static void Encrypt(unsigned char *out, const unsigned char *iv, const unsigned char *key, const unsigned char *in,
                      std::uint64_t len);
  /// The inverse of Encrypt, with the same arguments.
  static void Decrypt(unsigned char *out, const unsigned char *iv, const unsigned char *key, const unsigned char *in,
                      std::uint64_t len);

  kroAESCipher() = default;                          ///< objects have no state: the functions are static
  kroAESCipher(const kroAESCipher &) = default;      ///< copies nothing
  kroAESCipher &operator=(const kroAESCipher &);     ///< copies nothing
  kroAESCipher &operator=(kroAESCipher &&) noexcept; ///< copies nothing
};

#ifndef KR_BUILDING_LIBRARY // for callers: with dllexport it would keep the members from being exported
extern template class kroAESCipher<128>;
extern template class kroAESCipher<192>;
extern template class kroAESCipher<256>;
#endif

/// Triple DES with three keys in CBC mode; as kroAESCipher, with blocks and IV of 8 bytes and a key of 24.
class KR_API kroDES3CBCCipher {
public:
  /// As kroAESCipher::Encrypt, with 8 bytes at @p iv and 24 at @p key.
  static void Encrypt(unsigned char *out, const unsigned char *iv, const unsigned char *key, const unsigned char *in,
                      std::uint64_t len);
  /// The inverse of Encrypt, with the same arguments.
  static void Decrypt(unsigned char *out, const unsigned char *iv, const unsigned char *key, const unsigned char *in,
                      std::uint64_t len);

  kroDES3CBCCipher() = default;                              ///< objects have no state: the functions are static
  kroDES3CBCCipher(const kroDES3CBCCipher &) = default;      ///< copies nothing
  kroDES3CBCCipher &operator=(const kroDES3CBCCipher &);     ///< copies nothing
  kroDES3CBCCipher &operator=(kroDES3CBCCipher &&) noexcept; ///< copies nothing
};

/// The RC4 key stream, held across calls.
///
/// Nothing is reported: an object without memory or key writes nothing. Copies are deep: the copy goes on
/// from the same place in the key stream on its own.
///
/// @note One object serves one thread at a time. No member throws.
class KR_API kroRC4 {
public:
  kroRC4();
  /// As the default constructor and SetKey.
  kroRC4(const unsigned char *key, std::uint64_t len);
  kroRC4(const kroRC4 &other); ///< copies deeply
  ~kroRC4();
  kroRC4 &operator=(const kroRC4 &other); ///< copies deeply

  /// Starts the key stream of a key of @p len bytes. A null key, length 0 and lengths of 2^31 and more are
  /// refused and leave the object without a key.
  void SetKey(const unsigned char *key, std::uint64_t len);

  /// XORs @p len bytes of @p in with the next key-stream bytes into @p out, which may equal @p in; fewer than
  /// 2^31 bytes in one call, more are refused.
  void Transform(unsigned char *out, const unsigned char *in, std::uint64_t len);

  /// Fills the first @p n bytes of the object with zeros, before it is constructed. Compilers call it,
  /// programs need not.
  void __autoclassinit2(std::uint64_t n);

private:
  evp_cipher_ctx_st *context_;
};
