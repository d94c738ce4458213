// An outside program: signs by delegation through the README's example, and verifies the signature.
#include <krOpenSSL/krHandles.h>
#include <krOpenSSL/krOpenSSL.h>

#include <openssl/objects.h>

#include <array>
#include <vector>

void delegate(SSL *ssl, RSA *publicHalf);

namespace {

using namespace krOpenSSL;

// The "key store": a software key made before set-up.
RSA *storedKey() {
  static const RSAPtr key = [] {
    RSAPtr rsa(RSA_new());
    const BIGNUMPtr exponent(BN_new());
    BN_set_word(exponent.get(), RSA_F4);
    RSA_generate_key_ex(rsa.get(), 2048, exponent.get(), nullptr);
    return rsa;
  }();
  return key.get();
}

} // namespace

bool signInMyKeyStore(void * /*arg*/, int /*type*/, int keySize, const unsigned char *digest, int length,
                      unsigned char *out, int /*capacity*/, std::int32_t *outLength) {
  unsigned written = 0;
  if (keySize != RSA_size(storedKey()) ||
      RSA_sign(NID_sha256, digest, static_cast<unsigned>(length), out, &written, storedKey()) != 1) {
    return false;
  }
  *outLength = static_cast<std::int32_t>(written);
  return true;
}

int main() {
  storedKey();
  if (krOSSLSetup() != 0 || !kroFipsRngSha1::Validate()) {
    return 1;
  }
  const SSLCtxPtr context(SSL_CTX_new(TLS_server_method()));
  const SSLPtr ssl(SSL_new(context.get()));
  const RSAPtr publicHalf(RSAPublicKey_dup(storedKey()));
  delegate(ssl.get(), publicHalf.get());

  const std::array<unsigned char, 32> digest{1, 2, 3};
  std::vector<unsigned char> signature(static_cast<std::size_t>(RSA_size(publicHalf.get())));
  unsigned length = 0;
  const bool good =
      RSA_sign(NID_sha256, digest.data(), digest.size(), signature.data(), &length, publicHalf.get()) == 1 &&
      RSA_verify(NID_sha256, digest.data(), digest.size(), signature.data(), length, publicHalf.get()) == 1;
  krOSSLCleanup();
  return good ? 0 : 1;
}
