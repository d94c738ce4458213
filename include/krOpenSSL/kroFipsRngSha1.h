/// @file
/// The pseudo-random number generator of FIPS 186-2 (with change notice 1) over SHA-1.
/// New code draws with randomBytes of krCrypto.hpp.
#pragma once

#include <krOpenSSL/krExport.h>

#include <cstdint>

/// The FIPS 186-2 generator: a seed-key XKEY of b bits, the one-way function G made from the SHA-1
/// compression function (Appendix 3.3), optional caller input XSEED, and, once a 160-bit prime q is
/// given, outputs reduced modulo q (Appendix 3.1 as amended by change notice 1).
///
/// The strength of its output is that of its seed and of SHA-1; it exists for the callers that need
/// this standard's generator.
///
/// How long a member takes, and which memory it touches, follows from lengths, q and whether there is one, never from
/// XKEY, XSEED, the blocks or the bytes drawn: no branch, no index and no division depends on them.
///
/// @note The object holds no pointers and is copied by value. No member allocates, fails or throws.
///       One object serves one thread at a time. Working values are wiped before a member returns, those
///       that OpenSSL's SHA-1 leaves on the stack included; ModQ and Reduce leave that to the members that
///       use them. The state itself (XKEY) lives in the object.
class KR_API kroFipsRngSha1 {
public:
  /// An object without a seed: XKEY is empty (b = 0). Call Init before drawing from it.
  kroFipsRngSha1();
  kroFipsRngSha1(const kroFipsRngSha1 &) = default; ///< the copy draws the same bytes
  ~kroFipsRngSha1();
  kroFipsRngSha1 &operator=(const kroFipsRngSha1 &); ///< the same

  /// Sets XKEY, and q when one is given. Nothing else changes: what is left of the current block is
  /// still handed out, and without a q an earlier one stays in force.
  ///
  /// @param seed  XKEY as a big-endian number; null counts as empty
  /// @param len   bytes at @p seed; min(len, 64) rounded down to a multiple of 4 is used
  /// @param q     a 160-bit prime, 20 bytes big-endian with its top bit set, or null. A q without its
  ///              top bit is refused: XKEY is set, q and the mode stay as they were
  void Init(const unsigned char *seed, std::uint64_t len, const unsigned char *q);

  /// Draws random bytes. What is left of a 20-byte block is handed out by the next call.
  ///
  /// @param out       receives @p len bytes; null draws nothing
  /// @param len       bytes wanted
  /// @param xseed     XSEED as a big-endian number, added to XKEY for each block drawn and consumed
  ///                  from its front by as many bytes as are handed out; may be null
  /// @param xseedlen  bytes at @p xseed
  void Generate(unsigned char *out, std::uint64_t len, const unsigned char *xseed, std::uint64_t xseedlen);

  /// Computes a fresh block with XSEED, advancing XKEY, without changing how many bytes of the
  /// current block are still to be handed out. Only as many of XSEED's last bytes count as XKEY has.
  ///
  /// @param xseed  may be null
  /// @param len    bytes at @p xseed
  void Iterate(const unsigned char *xseed, std::uint64_t len);

  /// Self-test: the known answer of FIPS 186-2 Appendix 5 and two checks of the reduction.
  /// @return true when all three pass
  /// @note Safe from any thread.
  [[nodiscard]] static bool Validate();

protected:
  /// One step of G: writes 20 bytes to @p out and advances XKEY to (1 + XKEY + out) mod 2^b.
  void DoRound(unsigned char *out, const unsigned char *xseed, std::uint64_t xseedlen);

  /// Reduces the 44-byte block buffer modulo q in place, with the same steps for every number.
  void ModQ();

  /// One digit step of ModQ: subtracts qhat * q from the 24-byte @p span. @p qhat fits 32 bits.
  void Reduce(unsigned char *span, std::uint64_t qhat);

private:
  struct Round;
  struct KR_LOCAL Refill;

  std::uint64_t xkeyLength_;
  std::uint64_t readPosition_;
  unsigned char block_[44]; // four zero bytes, w0, w1
  unsigned char xkey_[64];
  unsigned char q_[20];
  bool qMode_;
};
