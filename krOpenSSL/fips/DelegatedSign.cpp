// Signing with delegated keys through an engine's EVP_PKEY methods.
#include "fips/DelegatedSign.h"

#include "accessors/KeySize.h"
#include "engine/exDataIndexes.h"
#include "state/State.h"

#include <openssl/ec.h>
#include <openssl/rsa.h>

#include <array>
#include <climits>

namespace krOpenSSL {
namespace {

constexpr int kFailure = -1;
constexpr std::size_t kMaxRsaBytes = OPENSSL_RSA_MAX_MODULUS_BITS / 8;

// The input of one signature; its lengths fit into an int.
struct Message {
  const unsigned char *data;
  int length;
};

// Null for a context without a key.
RSA *rsaOf(EVP_PKEY_CTX *context) noexcept {
  EVP_PKEY *key = EVP_PKEY_CTX_get0_pkey(context);
  return key != nullptr ? keyObject::rsaOf(key) : nullptr;
}

EC_KEY *ecKeyOf(EVP_PKEY_CTX *context) noexcept {
  EVP_PKEY *key = EVP_PKEY_CTX_get0_pkey(context);
  return key != nullptr ? keyObject::ecKeyOf(key) : nullptr;
}

int signPkcs1(const EVP_MD *hash, const Message &message, unsigned char *out, RSA *rsa) noexcept {
  unsigned int written = 0;
  const int result =
      RSA_sign(EVP_MD_type(hash), message.data, static_cast<unsigned int>(message.length), out, &written, rsa);
  return result > 0 ? static_cast<int>(written) : result;
}

int signPss(EVP_PKEY_CTX *context, const EVP_MD *hash, const Message &message, unsigned char *out, RSA *rsa) noexcept {
  const EVP_MD *mask = nullptr;
  int saltLength = 0;
  std::array<unsigned char, kMaxRsaBytes> block;
  if (EVP_PKEY_CTX_get_rsa_mgf1_md(context, &mask) <= 0 ||
      EVP_PKEY_CTX_get_rsa_pss_saltlen(context, &saltLength) <= 0 ||
      static_cast<std::size_t>(RSA_size(rsa)) > block.size() ||
      RSA_padding_add_PKCS1_PSS_mgf1(rsa, block.data(), message.data, hash, mask, saltLength) == 0) {
    return kFailure;
  }
  return RSA_private_encrypt(RSA_size(rsa), block.data(), out, rsa, RSA_NO_PADDING);
}

// The bytes written, or 0 or less.
int signRsa(EVP_PKEY_CTX *context, const Message &message, unsigned char *out, RSA *rsa) noexcept {
  const EVP_MD *hash = nullptr;
  int padding = 0;
  if (EVP_PKEY_CTX_get_signature_md(context, &hash) <= 0 || EVP_PKEY_CTX_get_rsa_padding(context, &padding) <= 0) {
    return kFailure;
  }
  if (hash == nullptr) {
    return RSA_private_encrypt(message.length, message.data, out, rsa, padding);
  }
  if (message.length != EVP_MD_size(hash)) {
    return kFailure;
  }
  switch (padding) {
  case RSA_PKCS1_PADDING:
    return signPkcs1(hash, message, out, rsa);
  case RSA_PKCS1_PSS_PADDING:
    return signPss(context, hash, message, out, rsa);
  default:
    return kFailure;
  }
}

// OpenSSL's method does not look at the type, and gets this one where no digest is set. The engine is not asked: one
// that does not tell logs the question as an error.
int signEc(EVP_PKEY_CTX * /*context*/, const Message &message, unsigned char *out, EC_KEY *key) noexcept {
  unsigned int written = 0;
  const int result = ECDSA_sign(NID_sha1, message.data, message.length, out, &written, key);
  return result > 0 ? static_cast<int>(written) : result;
}

// What is the same for every key: the question for the length, the capacity, the result.
template <class Key>
int signWith(int (*sign)(EVP_PKEY_CTX *, const Message &, unsigned char *, Key *), EVP_PKEY_CTX *context, Key *key,
             int size, unsigned char *signature, std::size_t *signatureLength, const unsigned char *data,
             std::size_t length) noexcept {
  if (signature == nullptr) {
    *signatureLength = static_cast<std::size_t>(size);
    return 1;
  }
  if (size == 0 || *signatureLength < static_cast<std::size_t>(size) || length > INT_MAX) {
    return 0;
  }
  const int written = withinSize(sign(context, {data, static_cast<int>(length)}, signature, key), size);
  if (written <= 0) {
    return written;
  }
  *signatureLength = static_cast<std::size_t>(written);
  return 1;
}

} // namespace

bool isDelegatedRsa(EVP_PKEY_CTX *context) noexcept {
  const RSA *rsa = rsaOf(context);
  return rsa != nullptr && (state::rsaPrivateEncrypt.load(std::memory_order_acquire) != nullptr ||
                            RSA_get_ex_data(rsa, exDataIndex(ExData::rsa)) != nullptr);
}

bool isDelegatedEc(EVP_PKEY_CTX *context) noexcept {
  const EC_KEY *key = ecKeyOf(context);
  return key != nullptr && (state::ecdsaSign.load(std::memory_order_acquire) != nullptr ||
                            EC_KEY_get_ex_data(key, exDataIndex(ExData::ecdsa)) != nullptr);
}

int signDelegatedRsa(EVP_PKEY_CTX *context, unsigned char *signature, std::size_t *signatureLength,
                     const unsigned char *data, std::size_t length) noexcept {
  RSA *rsa = rsaOf(context);
  return signWith(signRsa, context, rsa, sizeOf(rsa), signature, signatureLength, data, length);
}

int signDelegatedEc(EVP_PKEY_CTX *context, unsigned char *signature, std::size_t *signatureLength,
                    const unsigned char *data, std::size_t length) noexcept {
  EC_KEY *key = ecKeyOf(context);
  return signWith(signEc, context, key, sizeOf(key), signature, signatureLength, data, length);
}

} // namespace krOpenSSL
