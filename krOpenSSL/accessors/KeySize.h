// How much OpenSSL has room for when a key signs or decrypts. It believes whatever length comes back, so what does not
// come from its own code is judged here before OpenSSL gets it.
#pragma once

#include <krOpenSSL/krHandles.h>

namespace krOpenSSL {

/// RSA_size, DSA_size and ECDSA_size, in which OpenSSL's callers allocate; 0 for a key that cannot tell, and for null.
/// To be asked before a caller's code runs, which may change the key.
int sizeOf(const RSA *key) noexcept;
int sizeOf(const DSA *key) noexcept;
int sizeOf(const EC_KEY *key) noexcept;

/// @return the result, or -1 for one above the size
constexpr int withinSize(int result, int size) noexcept { return result <= size ? result : -1; }

/// Whether there is a signature, with both of its numbers: OpenSSL 3 encodes no other, but goes through null.
///@{
bool isWhole(const DSA_SIG *signature) noexcept;
bool isWhole(const ECDSA_SIG *signature) noexcept;
///@}

inline int encodedLength(const DSA_SIG *signature) noexcept { return i2d_DSA_SIG(signature, nullptr); }
inline int encodedLength(const ECDSA_SIG *signature) noexcept { return i2d_ECDSA_SIG(signature, nullptr); }

/// DSA_sign and ECDSA_sign encode into a buffer of the key's size, without a bound.
/// @return the signature, or null, with the signature freed, for one that is not whole, that cannot be encoded or whose
/// encoding is longer than the size
template <class SignaturePtr> typename SignaturePtr::pointer withinSize(SignaturePtr signature, int size) noexcept {
  const int length = isWhole(signature.get()) ? encodedLength(signature.get()) : 0;
  return length > 0 && length <= size ? signature.release() : nullptr;
}

} // namespace krOpenSSL
