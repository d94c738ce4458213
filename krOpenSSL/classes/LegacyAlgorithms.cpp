// The one place where the versions of OpenSSL are called differently.
#include "LegacyAlgorithms.h"

#if OPENSSL_VERSION_NUMBER >= 0x30000000L

#include "accessors/ErrorQueueScope.h"
#include "accessors/ForksWait.h"

#include <openssl/provider.h>

namespace krOpenSSL {
namespace {

// There for the life of the process: objects of the classes may be used to its end.
struct Legacy {
  EVP_MD *md4 = nullptr;
  EVP_CIPHER *rc4 = nullptr;

  Legacy() noexcept {
    const ForksWait wait(ForksWait::initialisation);
    const ErrorQueueScope errors;
    OSSL_LIB_CTX *context = OSSL_LIB_CTX_new();
    if (context == nullptr) {
      return;
    }
    if (OSSL_PROVIDER_load(context, "legacy") == nullptr) {
      OSSL_LIB_CTX_free(context);
      return;
    }
    md4 = EVP_MD_fetch(context, "MD4", nullptr);
    rc4 = EVP_CIPHER_fetch(context, "RC4", nullptr);
  }
};

const Legacy &legacy() noexcept {
  static const Legacy once;
  return once;
}

} // namespace

const EVP_MD *md4() noexcept { return legacy().md4 != nullptr ? legacy().md4 : EVP_md4(); }
const EVP_CIPHER *rc4() noexcept { return legacy().rc4 != nullptr ? legacy().rc4 : EVP_rc4(); }

} // namespace krOpenSSL

#else

const EVP_MD *krOpenSSL::md4() noexcept { return EVP_md4(); }
const EVP_CIPHER *krOpenSSL::rc4() noexcept { return EVP_rc4(); }

#endif
