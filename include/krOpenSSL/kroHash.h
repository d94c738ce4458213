/// @file
/// Message digests: MD4 (RFC 1320), MD5 (RFC 1321), SHA-1 and SHA-2 (FIPS 180-4).
/// New code enters by krCrypto.hpp, which answers whole or throws; these classes report nothing.
///
/// MD4, MD5 and SHA-1 do not withstand collision attacks; they are here for the formats that prescribe them.
///
///     unsigned char digest[32];
///     kroSHA256 hash;
///     hash(digest, data, length); // in one call, or:
///     hash.Init();
///     hash.Update(data, length);
///     hash.Final(digest);
#pragma once

#include <krOpenSSL/krExport.h>

#include <cstdint>

struct evp_md_st;
struct evp_md_ctx_st;

/// A digest computation over OpenSSL. Use one of the classes below.
///
/// An object is idle, or computing between Init and Final. Calls out of order do no harm: Init while
/// computing starts anew, Update and Final on an idle object do nothing. Nothing is reported: when OpenSSL
/// has no memory, or refuses the algorithm, the object stays idle and nothing is written.
///
/// Copies are deep: a copy of an object that computes goes on from the same point on its own. A move copies
/// too. The digests run whether or not the process is in FIPS mode.
///
/// @note One object serves one thread at a time. No member throws.
class KR_API kroHashBase {
public:
  /// @param algorithm  an OpenSSL digest, which has to outlive the object; with null the object stays idle
  kroHashBase(const evp_md_st *algorithm);
  kroHashBase(const kroHashBase &other); ///< copies deeply
  ~kroHashBase();

  /// Starts a computation.
  void Init();

  /// Takes in @p len bytes, the full 64 bits of it. Null @p data with a length ends the computation: Final
  /// then writes nothing.
  void Update(const unsigned char *data, std::uint64_t len);

  /// Writes the digest (GetEVP_MD's size: 16 to 64 bytes) to @p out and ends the computation; with a null
  /// @p out it only ends it.
  void Final(unsigned char *out);

  /// Writes the digest of @p len bytes to @p out. The object ends idle.
  void operator()(unsigned char *out, const unsigned char *data, std::uint64_t len);

  /// Fills the first @p n bytes of the object with zeros, before it is constructed; such an object is idle
  /// and without an algorithm. Compilers call it, programs need not.
  void __autoclassinit2(std::uint64_t n);

  // Through a reference to the base, an object of one algorithm would get another's, and write more bytes than its own
  // type says. Visual C++ has the access in the exported name, which stays as it was.
#ifndef KR_BUILDING_LIBRARY
protected:
#endif
  kroHashBase &operator=(const kroHashBase &other); ///< copies deeply; for the classes below

private:
  const evp_md_st *algorithm_;
  evp_md_ctx_st *context_;
};

/// The seven classes differ in name only: each fixes one OpenSSL digest.
#define KR_HASH_CLASS(name)                                                                                            \
  class KR_API name : public kroHashBase {                                                                             \
  public:                                                                                                              \
    name();                                                                                                            \
    /*! Copies deeply. */                                                                                              \
    name(const name &) = default;                                                                                      \
    ~name();                                                                                                           \
    /*! Copies deeply. */                                                                                              \
    name &operator=(const name &other);                                                                                \
    /*! Copies deeply. */                                                                                              \
    name &operator=(name &&other) noexcept;                                                                            \
    /*! OpenSSL's digest of the class; safe from any thread. */                                                        \
    [[nodiscard]] static const evp_md_st *GetEVP_MD();                                                                 \
    /*! Whether FIPS mode has this digest: false for MD4 and MD5; safe from any thread. */                             \
    [[nodiscard]] static bool SupportsFips();                                                                          \
    /*! As kroHashBase's. */                                                                                           \
    void __autoclassinit2(std::uint64_t n);                                                                            \
  }

/// MD4 (RFC 1320), 16 bytes.
KR_HASH_CLASS(kroMD4);
/// MD5 (RFC 1321), 16 bytes.
KR_HASH_CLASS(kroMD5);
/// SHA-1 (FIPS 180-4), 20 bytes.
KR_HASH_CLASS(kroSHA1);
/// SHA-224 (FIPS 180-4), 28 bytes.
KR_HASH_CLASS(kroSHA224);
/// SHA-256 (FIPS 180-4), 32 bytes.
KR_HASH_CLASS(kroSHA256);
/// SHA-384 (FIPS 180-4), 48 bytes.
KR_HASH_CLASS(kroSHA384);
/// SHA-512 (FIPS 180-4), 64 bytes.
KR_HASH_CLASS(kroSHA512);

#undef KR_HASH_CLASS
