/// @file
/// AES key wrap (RFC 3394).
/// New code enters by krCrypto.hpp, which tells damage from what could not be done.
///
///     kroAESWrap wrap;
///     wrap.SetEncryptKey(kek, 32);
///     bool wrapped = wrap.Encrypt(out, keyData, 24, nullptr);     // out receives 32 bytes
///     wrap.SetDecryptKey(kek, 32);
///     bool unwrapped = wrap.Decrypt(keyData, 24, out, nullptr);   // note the other order of arguments
#pragma once

#include <krOpenSSL/krExport.h>

#include <cstdint>

struct evp_cipher_ctx_st;

/// Wraps and unwraps key data under a key-encryption key of 128, 192 or 256 bits.
///
/// An object is keyed for one direction at a time, and answers false in the other. Like kroHMAC it works through
/// OpenSSL or through the external FIPS module, chosen when it is made. On the module way the members answer false,
/// or do nothing, while the module is not ready; nulls are refused as on the OpenSSL way, and what the module makes
/// of lengths, and of an object that was never given a key, is its own. Copies are deep (on the module way: byte for
/// byte).
///
/// @note One object serves one thread at a time. Encrypt, Decrypt and Validate throw std::bad_alloc when there is no
///       memory for a working copy of the key data: then nothing is written and the object stays as it was. No other
///       member throws.
class KR_API kroAESWrap {
public:
  kroAESWrap();
  kroAESWrap(const kroAESWrap &other); ///< copies deeply, the way of working included
  ~kroAESWrap();
  kroAESWrap &operator=(const kroAESWrap &other); ///< as the copy constructor

  /// Keys the object for Encrypt.
  ///
  /// @param key  the key-encryption key; null leaves the object without a key
  /// @param len  its length in bytes (16, 24, 32) or bits (128, 192, 256). Any other length re-keys the
  ///             cipher that is already set, and does nothing when none is
  void SetEncryptKey(const unsigned char *key, std::uint64_t len);

  /// Keys the object for Decrypt; as SetEncryptKey.
  void SetDecryptKey(const unsigned char *key, std::uint64_t len);

  /// Wraps @p len bytes of key data (RFC 3394, 2.2.1).
  ///
  /// @param out  receives len + 8 bytes; may overlap @p in
  /// @param in   len bytes
  /// @param len  bytes of key data, a multiple of 8, at least 8 and below 2^32 / 6 * 8
  /// @param iv   8 bytes, or null for the default initial value
  /// @return false, with @p out untouched, when the length is not allowed, @p out or @p in is null, no key is
  ///         set for wrapping or the cipher fails
  /// @throw std::bad_alloc without memory for a working copy of the key data; @p out is untouched
  [[nodiscard]] bool Encrypt(unsigned char *out, const unsigned char *in, std::uint64_t len, const unsigned char *iv);

  /// Unwraps to @p len bytes of key data (RFC 3394, 2.2.2).
  ///
  /// @param out  receives len bytes; may overlap @p in
  /// @param len  bytes of unwrapped key data; as for Encrypt
  /// @param in   len + 8 bytes
  /// @param iv   as for Encrypt
  /// @return false, with @p out untouched, as Encrypt (here for a key set for unwrapping), or when the data is
  ///         not what was wrapped with this key and @p iv
  /// @throw std::bad_alloc as Encrypt
  [[nodiscard]] bool Decrypt(unsigned char *out, std::uint64_t len, const unsigned char *in, const unsigned char *iv);

  /// Self-test with the first example of RFC 3394, section 4.
  /// @throw std::bad_alloc as Encrypt
  /// @note Safe from any thread.
  [[nodiscard]] static bool Validate();

  /// Fills the first @p n bytes of the object with zeros, before it is constructed. Compilers call it,
  /// programs need not.
  void __autoclassinit2(std::uint64_t n);

private:
  enum : std::uint64_t { kStateBytes = 256 };

  struct KR_LOCAL Context;

  bool viaModule_;
  bool mayWrap_; // on the module way: what the key was set for; both before the first, neither once one was refused
  bool mayUnwrap_;
  union {
    evp_cipher_ctx_st *context_;
    unsigned char area_[kStateBytes];
  };
};
