/// @file
/// HMAC (RFC 2104) with the digests of kroHash.h.
/// New code enters by krCrypto.hpp, which answers whole or throws; these classes report nothing.
///
///     unsigned char mac[32];
///     kroHMAC<kroSHA256> hmac;
///     hmac(key, keyLength, data, length, mac); // in one call, or:
///     hmac.SetKey(key, keyLength);
///     hmac.Update(data, length);
///     hmac.Final(mac);
///     hmac.Init(); // the next message under the same key
#pragma once

#include <krOpenSSL/krExport.h>
#include <krOpenSSL/kroHash.h>

#include <cstdint>

struct hmac_ctx_st;

/// HMAC with the digest of T, one of the seven classes of kroHash.h.
///
/// An object works in one of two ways, chosen when it is made and fixed for its life: through OpenSSL; or, when
/// the process is in FIPS mode and the external FIPS module provides it (krFipsMode() and not
/// krFipsUsingOpenSSLFIPS()), through that module. MD4 and MD5 always work through OpenSSL. On the module
/// way every member does nothing while the module is not ready, but that the destructor wipes the object: an Update
/// is missing from the MAC then, if the module is ready again at Final.
///
/// Nothing is reported. A call that cannot be carried out leaves nothing half done: it ends the computation, and
/// Final then writes nothing. That holds on both ways for lengths of 2^31 bytes and more, for null with a length and
/// for a null output, and on the OpenSSL way for an object without memory or key. There, Update and Final do nothing
/// outside a computation, which SetKey or Init begins and Final ends; on the module way that is the module's own.
///
/// Copies are deep: the copy goes on from the same point on its own (on the module way: with a copy of the
/// module's state, byte for byte).
///
/// @note One object serves one thread at a time. No member throws.
template <class T> class KR_API kroHMAC {
public:
  kroHMAC();
  kroHMAC(const kroHMAC &other); ///< copies deeply, the way of working included
  ~kroHMAC();
  kroHMAC &operator=(const kroHMAC &other); ///< as the copy constructor

  /// Begins a message under the key set last; without a key it does nothing.
  void Init();

  /// Sets the key and begins a message. A key longer than the digest's block is hashed first, as HMAC
  /// prescribes. A null @p key with length 0 is the empty key; a refused key leaves the object without one.
  void SetKey(const unsigned char *key, std::uint64_t len);

  /// Takes in @p len bytes of the message.
  void Update(const unsigned char *data, std::uint64_t len);

  /// Writes the MAC, of the digest's size, to @p out.
  void Final(unsigned char *out);

  /// Init, SetKey, Update and Final in one call.
  void operator()(const unsigned char *key, std::uint64_t keylen, const unsigned char *data, std::uint64_t len,
                  unsigned char *out);

  /// Fills the first @p n bytes of the object with zeros, before it is constructed. Compilers call it,
  /// programs need not.
  void __autoclassinit2(std::uint64_t n);

private:
  // What was refused is kept on both ways; on the module way the rest is the module's.
  enum class Phase : unsigned char { unkeyed, keyed, computing };
  enum : std::uint64_t { kStateBytes = 352 };

  struct KR_LOCAL Context;

  bool viaModule_;
  Phase phase_;
  union {
    hmac_ctx_st *context_; // on the OpenSSL way
    unsigned char area_[kStateBytes];
  };
};

#ifndef KR_BUILDING_LIBRARY // for callers: with dllexport it would keep the members from being exported
extern template class kroHMAC<kroMD4>;
extern template class kroHMAC<kroMD5>;
extern template class kroHMAC<kroSHA1>;
extern template class kroHMAC<kroSHA224>;
extern template class kroHMAC<kroSHA256>;
extern template class kroHMAC<kroSHA384>;
extern template class kroHMAC<kroSHA512>;
#endif
