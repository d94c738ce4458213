// The four callbacks, which count their calls and do with the software keys what OpenSSL does.
#pragma once

#include "support/Keys.h"

#include <krOpenSSL/krDelegation.h>

namespace krTest {

inline thread_local int callbacks = 0; ///< how often this thread has called them

template <auto kOperation>
int rsaElsewhere(int flen, const unsigned char *from, unsigned char *to, RSA * /*rsa*/, int padding) {
  ++callbacks;
  return kOperation(flen, from, to, rsaOf(softwareKey(Kind::rsa)), padding);
}

inline DSA_SIG *dsaElsewhere(const unsigned char *digest, int length, DSA * /*dsa*/) {
  ++callbacks;
  return DSA_do_sign(digest, length, dsaOf(softwareKey(Kind::dsa)));
}

inline ECDSA_SIG *ecdsaElsewhere(const unsigned char *digest, int length, const BIGNUM * /*kinv*/, const BIGNUM * /*r*/,
                                 EC_KEY * /*key*/) {
  ++callbacks;
  return ECDSA_do_sign(digest, length, ecKeyOf(softwareKey(Kind::p256)));
}

/// Fills the slots, or empties them; the count starts over.
inline void delegateToCallbacks(bool delegate) {
  callbacks = 0;
  krEngineSetRSAPrivateKeyOpCallback(delegate ? rsaElsewhere<RSA_private_encrypt> : nullptr, 2);
  krEngineSetRSAPrivateKeyOpCallback(delegate ? rsaElsewhere<RSA_private_decrypt> : nullptr, 0);
  krEngineSetDSAPrivateKeyOpCallback(delegate ? dsaElsewhere : nullptr);
  krEngineSetECDSAPrivateKeyOpCallback(delegate ? ecdsaElsewhere : nullptr);
}

} // namespace krTest
