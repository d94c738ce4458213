// Running OpenSSL's default RSA method on a key whose own method is a stranger's.
#include "engine/DefaultRsa.h"

namespace krOpenSSL {
namespace {

BIGNUMPtr duplicate(const BIGNUM *number) noexcept { return BIGNUMPtr(BN_dup(number)); }

bool copyNumbers(RSA *copy, const RSA *rsa) noexcept {
  return handOver([copy](auto... numbers) { return RSA_set0_key(copy, numbers...); }, duplicate(RSA_get0_n(rsa)),
                  duplicate(RSA_get0_e(rsa)), duplicate(RSA_get0_d(rsa))) != 0;
}

bool copyPrimes(RSA *copy, const RSA *rsa) noexcept {
  return handOver([copy](auto... primes) { return RSA_set0_factors(copy, primes...); }, duplicate(RSA_get0_p(rsa)),
                  duplicate(RSA_get0_q(rsa))) != 0 &&
         handOver([copy](auto... numbers) { return RSA_set0_crt_params(copy, numbers...); },
                  duplicate(RSA_get0_dmp1(rsa)), duplicate(RSA_get0_dmq1(rsa)), duplicate(RSA_get0_iqmp(rsa))) != 0;
}

// A key of more than two primes computes with n and d alone, which is slower and right.
bool hasTwoPrimes(const RSA *rsa) noexcept {
  return RSA_get_multi_prime_extra_count(rsa) == 0 && RSA_get0_p(rsa) != nullptr && RSA_get0_q(rsa) != nullptr &&
         RSA_get0_dmp1(rsa) != nullptr && RSA_get0_dmq1(rsa) != nullptr && RSA_get0_iqmp(rsa) != nullptr;
}

bool hasArithmetic(const RSA_METHOD *method) noexcept {
  return RSA_meth_get_mod_exp(method) != nullptr && RSA_meth_get_bn_mod_exp(method) != nullptr;
}

} // namespace

bool needsCopyForDefaultMethod(const RSA *rsa) noexcept {
  return hasArithmetic(RSA_get_default_method()) && !hasArithmetic(RSA_get_method(rsa));
}

RSAPtr copyForDefaultMethod(const RSA *rsa) noexcept {
  // OpenSSL has no way past the engine in force: its method starts the key and ends it again.
  RSAPtr copy(RSA_new());
  if (!copy || RSA_set_method(copy.get(), RSA_get_default_method()) == 0 || !copyNumbers(copy.get(), rsa) ||
      (hasTwoPrimes(rsa) && !copyPrimes(copy.get(), rsa))) {
    return nullptr;
  }
  RSA_clear_flags(copy.get(), RSA_FLAG_EXT_PKEY);
  RSA_set_flags(copy.get(), RSA_test_flags(rsa, RSA_FLAG_NO_BLINDING));
  return copy;
}

} // namespace krOpenSSL
