// OpenSSL's sizes of keys, for keys that lack the numbers, too: there OpenSSL's own functions go through null.
#include "accessors/KeySize.h"

int krOpenSSL::sizeOf(const RSA *key) noexcept {
  return key != nullptr && RSA_get0_n(key) != nullptr ? RSA_size(key) : 0;
}

int krOpenSSL::sizeOf(const DSA *key) noexcept {
  return key != nullptr && DSA_get0_q(key) != nullptr ? DSA_size(key) : 0;
}

int krOpenSSL::sizeOf(const EC_KEY *key) noexcept { return ECDSA_size(key); }

bool krOpenSSL::isWhole(const DSA_SIG *signature) noexcept {
  const BIGNUM *r = nullptr;
  const BIGNUM *s = nullptr;
  if (signature != nullptr) {
    DSA_SIG_get0(signature, &r, &s);
  }
  return r != nullptr && s != nullptr;
}

bool krOpenSSL::isWhole(const ECDSA_SIG *signature) noexcept {
  return signature != nullptr && ECDSA_SIG_get0_r(signature) != nullptr && ECDSA_SIG_get0_s(signature) != nullptr;
}
