// An outside program: signs by delegation through the README's example, and verifies the signature.
#include <krOpenSSL/krDelegate.hpp>
#include <krOpenSSL/krOpenSSL.h>

#include <openssl/objects.h>

#include <array>
#include <span>
#include <vector>

std::size_t signInMyKeyStore(const krOpenSSL::SignRequest &request, std::span<unsigned char> out);
krOpenSSL::DelegatedKey delegate(const krOpenSSL::Library &library, SSL_CTX *context, X509 *certificate);
void beforeHandshake(const krOpenSSL::DelegatedKey &key, SSL *ssl);
bool digestExample(const unsigned char *data, std::uint64_t length);
bool hmacExample(const unsigned char *key, std::uint64_t keyLength, const unsigned char *data, std::uint64_t length);
bool cbcExample(const unsigned char iv[16], const unsigned char key[32], const unsigned char in[64]);
bool rc4Example(const unsigned char *key, std::uint64_t keyLength, const unsigned char in[20]);
bool wrapExample(const unsigned char kek[32], const unsigned char keyData[24]);
bool generatorExample();
bool layerExample(std::span<const unsigned char> data);

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
         wrapExample(bytes.data(), bytes.data()) && generatorExample() && layerExample(bytes);
}

} // namespace

std::size_t signInMyKeyStore(const SignRequest &request, std::span<unsigned char> out) {
  unsigned written = 0;
  const auto length = static_cast<unsigned>(request.digest.size());
  return RSA_sign(request.hash, request.digest.data(), length, out.data(), &written, storedKey()) == 1 ? written : 0;
}

int main() {
  storedKey();
  const Library library;
  const EVPPKeyPtr publicKey(EVP_PKEY_new());
  EVP_PKEY_set1_RSA(publicKey.get(), storedKey());
  const X509Ptr certificate(X509_new());
  X509_set_pubkey(certificate.get(), publicKey.get());
  const SSLCtxPtr context(SSL_CTX_new(TLS_server_method()));
  const SSLPtr ssl(SSL_new(context.get()));
  beforeHandshake(delegate(library, context.get(), certificate.get()), ssl.get());

  RSA *bound = krOpenSSL::keyObject::rsaOf(SSL_get_privatekey(ssl.get()));
  const std::array<unsigned char, 32> digest{1, 2, 3};
  std::vector<unsigned char> signature(static_cast<std::size_t>(RSA_size(bound)));
  unsigned length = 0;
  const bool good = RSA_sign(NID_sha256, digest.data(), digest.size(), signature.data(), &length, bound) == 1 &&
                    RSA_verify(NID_sha256, digest.data(), digest.size(), signature.data(), length, storedKey()) == 1;
  return good && classExamples() ? 0 : 1;
}
