// An outside program: signs by delegation through the README's example, and verifies the signature.
#include <krOpenSSL/krHandles.h>
#include <krOpenSSL/krOpenSSL.h>

#include <openssl/objects.h>

#include <array>
#include <vector>

void delegate(SSL *ssl, RSA *publicHalf);
bool digestExample(const unsigned char *data, std::uint64_t length);
bool hmacExample(const unsigned char *key, std::uint64_t keyLength, const unsigned char *data, std::uint64_t length);
bool cbcExample(const unsigned char iv[16], const unsigned char key[32], const unsigned char in[64]);
bool rc4Example(const unsigned char *key, std::uint64_t keyLength, const unsigned char in[20]);
bool wrapExample(const unsigned char kek[32], const unsigned char keyData[24]);
bool generatorExample();

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

bool classExamples() {
  const std::array<unsigned char, 64> bytes{1, 2, 3};
  return digestExample(bytes.data(), bytes.size()) && hmacExample(bytes.data(), 16, bytes.data(), bytes.size()) &&
         cbcExample(bytes.data(), bytes.data(), bytes.data()) && rc4Example(bytes.data(), 16, bytes.data()) &&
         wrapExample(bytes.data(), bytes.data()) && generatorExample();
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
  if (krOSSLSetup() != 0) {
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
  return good && classExamples() ? 0 : 1;
}
