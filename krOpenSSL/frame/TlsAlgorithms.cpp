// What OpenSSL's TLS finds by name, once.
#include "frame/TlsAlgorithms.h"

#include <openssl/crypto.h>
#include <openssl/evp.h>

#include <algorithm>
#include <array>

namespace krOpenSSL {
namespace {

constexpr std::array kDigests{EVP_md5, EVP_sha1, EVP_md5_sha1, EVP_sha224, EVP_sha256, EVP_sha384, EVP_sha512};
constexpr std::array kCiphers{EVP_aes_128_cbc, EVP_aes_256_cbc, EVP_aes_128_gcm,       EVP_aes_256_gcm,
                              EVP_aes_128_ccm, EVP_aes_256_ccm, EVP_chacha20_poly1305, EVP_des_ede3_cbc};

bool list(const EVP_MD *(*digest)()) noexcept {
  return EVP_get_digestbyname(EVP_MD_name(digest())) != nullptr || EVP_add_digest(digest()) != 0;
}

bool list(const EVP_CIPHER *(*cipher)()) noexcept {
  return EVP_get_cipherbyname(EVP_CIPHER_name(cipher())) != nullptr || EVP_add_cipher(cipher()) != 0;
}

} // namespace

bool listTlsAlgorithms() noexcept {
  const auto listOne = [](auto algorithm) { return list(algorithm); };
  OPENSSL_init_crypto(OPENSSL_INIT_NO_ATEXIT | OPENSSL_INIT_NO_LOAD_CONFIG | OPENSSL_INIT_ADD_ALL_CIPHERS |
                          OPENSSL_INIT_ADD_ALL_DIGESTS,
                      nullptr);
  return std::ranges::all_of(kDigests, listOne) && std::ranges::all_of(kCiphers, listOne);
}

} // namespace krOpenSSL
