// The example's whole use of the library.
#include "Delegation.h"

#include "Failure.h"

#include <openssl/objects.h>

#include <algorithm>

namespace delegated_tls {
namespace {

using krOpenSSL::EVPPKeyPtr;

/// Copies a result to where OpenSSL wants it; false when there is none or it does not fit.
bool deliver(const std::optional<Bytes> &result, unsigned char *out, int capacity) {
  if (!result || result->size() > static_cast<std::size_t>(capacity)) {
    return false;
  }
  std::ranges::copy(*result, out);
  return true;
}

bool signForConnection(void *arg, int type, int keySize, const unsigned char *data, int dataLength, unsigned char *out,
                       int capacity, std::int32_t *outLength) {
  // An RSA signature goes into OpenSSL's own buffer, which has the size of the key.
  const int room = type == NID_md5_sha1 ? std::min(keySize, capacity) : capacity;
  const auto signature = static_cast<HeldKey *>(arg)->perform(Operation::sign, 0, Bytes(data, data + dataLength));
  if (!deliver(signature, out, room)) {
    return false;
  }
  *outLength = static_cast<std::int32_t>(signature->size());
  return true;
}

/// Where an RSA key of useCallbackKey names its holder.
int heldKeyIndex() {
  static const int index = RSA_get_ex_new_index(0, nullptr, nullptr, nullptr, nullptr);
  return index;
}

using RsaFunction = int (*)(int, const unsigned char *, unsigned char *, RSA *, int);

int performRsa(Operation operation, RsaFunction ownMethod, int flen, const unsigned char *from, unsigned char *to,
               RSA *rsa, int padding) {
  auto *key = static_cast<HeldKey *>(RSA_get_ex_data(rsa, heldKeyIndex()));
  if (key == nullptr) {
    return ownMethod(flen, from, to, rsa, padding);
  }
  const auto result = key->perform(operation, padding, Bytes(from, from + flen));
  return deliver(result, to, RSA_size(rsa)) ? static_cast<int>(result->size()) : -1;
}

int encryptByHolder(int flen, const unsigned char *from, unsigned char *to, RSA *rsa, int padding) {
  return performRsa(Operation::rsaPrivateEncrypt, RSA_meth_get_priv_enc(RSA_get_default_method()), flen, from, to, rsa,
                    padding);
}

int decryptByHolder(int flen, const unsigned char *from, unsigned char *to, RSA *rsa, int padding) {
  return performRsa(Operation::rsaPrivateDecrypt, RSA_meth_get_priv_dec(RSA_get_default_method()), flen, from, to, rsa,
                    padding);
}

/// A key object made now, so that it is bound to the engine, and used by nobody else.
EVPPKeyPtr freshPublicHalf(X509 *certificate) { return publicKeyFrom(publicKeyDer(X509_get0_pubkey(certificate))); }

int nameConnection(EVP_PKEY *key, SSL *ssl) {
  switch (EVP_PKEY_base_id(key)) {
  case EVP_PKEY_RSA:
    return RSA_set_ex_data(EVP_PKEY_get0_RSA(key), kropenssl_get_rsa_idx(), ssl);
  case EVP_PKEY_DSA:
    return DSA_set_ex_data(EVP_PKEY_get0_DSA(key), kropenssl_get_dsa_idx(), ssl);
  case EVP_PKEY_EC:
    return EC_KEY_set_ex_data(EVP_PKEY_get0_EC_KEY(key), kropenssl_get_ecdsa_idx(), ssl);
  default:
    return 0;
  }
}

} // namespace

Library::Library() {
  if (krOSSLSetup() != 0) {
    krOSSLCleanup();
    throw Failure("OpenSSL could not be initialised");
  }
}

Provider::Provider(SSL_CTX *context, HeldKey &key) : record_{nullptr, signForConnection, &key} {
  checked(SSL_CTX_set_ex_data(context, kropenssl_get_ssl_ctx_idx(), &record_), "out of memory");
}

void useProviderKey(SSL *ssl, X509 *certificate) {
  const EVPPKeyPtr key = freshPublicHalf(certificate);
  checked(nameConnection(key.get(), ssl), "the key cannot be delegated");
  checked(SSL_use_PrivateKey(ssl, key.get()), "the key cannot be used");
}

void useCallbackKey(SSL *ssl, X509 *certificate, HeldKey &held) {
  const EVPPKeyPtr key = freshPublicHalf(certificate);
  RSA *rsa = checked(EVP_PKEY_get0_RSA(key.get()), "only RSA keys go through the RSA callbacks");
  checked(RSA_set_ex_data(rsa, heldKeyIndex(), &held), "the key cannot be delegated");
  checked(SSL_use_PrivateKey(ssl, key.get()), "the key cannot be used");
}

RsaCallbacks::RsaCallbacks() {
  krEngineSetRSAPrivateKeyOpCallback(encryptByHolder, 1);
  krEngineSetRSAPrivateKeyOpCallback(decryptByHolder, 0);
}

RsaCallbacks::~RsaCallbacks() {
  krEngineSetRSAPrivateKeyOpCallback(nullptr, 1);
  krEngineSetRSAPrivateKeyOpCallback(nullptr, 0);
}

} // namespace delegated_tls
