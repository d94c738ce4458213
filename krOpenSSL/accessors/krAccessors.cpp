// The traced accessors, one or two lines each over the orders of Traced.h.
#include "accessors/krAccessors.h"

#include "accessors/ForksWait.h"
#include "accessors/Traced.h"

#include <krOpenSSL/krHandles.h>

using krOpenSSL::newExDataIndex;
using krOpenSSL::tracedAround;
using krOpenSSL::tracedBefore;
using krOpenSSL::tracedWork;

namespace {

const ASN1_OCTET_STRING *digestOf(const X509_SIG *digestInfo) noexcept {
  const ASN1_OCTET_STRING *digest = nullptr;
  X509_SIG_get0(digestInfo, nullptr, &digest);
  return digest;
}

} // namespace

void krDH_get0_key(const DH *dh, const BIGNUM **publicKey, const BIGNUM **privateKey) noexcept {
  tracedAround(__func__, DH_get0_key, dh, publicKey, privateKey);
}

void krDH_get0_pqg(const DH *dh, const BIGNUM **p, const BIGNUM **q, const BIGNUM **g) noexcept {
  tracedAround(__func__, DH_get0_pqg, dh, p, q, g);
}

int krDH_set0_key(DH *dh, BIGNUM *publicKey, BIGNUM *privateKey) noexcept {
  return tracedBefore(__func__, DH_set0_key, dh, publicKey, privateKey);
}

int krDH_set0_pqg(DH *dh, BIGNUM *p, BIGNUM *q, BIGNUM *g) noexcept {
  return tracedBefore(__func__, DH_set0_pqg, dh, p, q, g);
}

DSA_SIG *krDSA_do_sign(const unsigned char *digest, int length, DSA *dsa) noexcept {
  return tracedBefore(__func__, DSA_meth_get_sign(DSA_get_default_method()), digest, length, dsa);
}

void krDSA_get0_key(const DSA *dsa, const BIGNUM **publicKey, const BIGNUM **privateKey) noexcept {
  tracedAround(__func__, DSA_get0_key, dsa, publicKey, privateKey);
}

void krDSA_get0_pqg(const DSA *dsa, const BIGNUM **p, const BIGNUM **q, const BIGNUM **g) noexcept {
  tracedAround(__func__, DSA_get0_pqg, dsa, p, q, g);
}

int krDSA_set0_key(DSA *dsa, BIGNUM *publicKey, BIGNUM *privateKey) noexcept {
  return tracedBefore(__func__, DSA_set0_key, dsa, publicKey, privateKey);
}

int krDSA_set0_pqg(DSA *dsa, BIGNUM *p, BIGNUM *q, BIGNUM *g) noexcept {
  return tracedBefore(__func__, DSA_set0_pqg, dsa, p, q, g);
}

ECDSA_SIG *krECDSA_do_sign_ex(const unsigned char *digest, int length, const BIGNUM *kinv, const BIGNUM *r,
                              EC_KEY *key) noexcept {
  return tracedWork(__func__, [=]() -> ECDSA_SIG * {
    const krOpenSSL::ECKeyMethodPtr method(EC_KEY_METHOD_new(EC_KEY_get_default_method()));
    if (!method) {
      return nullptr;
    }
    ECDSA_SIG *(*sign)(const unsigned char *, int, const BIGNUM *, const BIGNUM *, EC_KEY *) = nullptr;
    EC_KEY_METHOD_get_sign(method.get(), nullptr, nullptr, &sign);
    return sign(digest, length, kinv, r, key);
  });
}

void *krECDSA_get_ex_data(const EC_KEY *key, int index) noexcept {
  return tracedBefore(__func__, EC_KEY_get_ex_data, key, index);
}

int krECDSA_get_ex_new_index(long argl, void *argp, CRYPTO_EX_new *newFunction, CRYPTO_EX_dup *dupFunction,
                             CRYPTO_EX_free *freeFunction) noexcept {
  return tracedBefore(__func__, newExDataIndex, CRYPTO_EX_INDEX_EC_KEY, argl, argp, newFunction, dupFunction,
                      freeFunction);
}

void krENGINE_register_ECDSA(ENGINE *engine) noexcept { tracedBefore(__func__, ENGINE_register_EC, engine); }

void krENGINE_unregister_ECDSA(ENGINE *engine) noexcept { tracedBefore(__func__, ENGINE_unregister_EC, engine); }

void krEVP_CIPHER_CTX_Cleanup(EVP_CIPHER_CTX *context) noexcept {
  tracedAround(__func__, EVP_CIPHER_CTX_free, context);
}

int krEVP_CIPHER_CTX_encrypting(const EVP_CIPHER_CTX *context) noexcept {
  return tracedBefore(__func__, EVP_CIPHER_CTX_encrypting, context);
}

void *krEVP_CIPHER_CTX_get_cipher_data(const EVP_CIPHER_CTX *context) noexcept {
  return tracedBefore(__func__, EVP_CIPHER_CTX_get_cipher_data, context);
}

const unsigned char *krEVP_CIPHER_CTX_iv(const EVP_CIPHER_CTX *context) noexcept {
  return tracedBefore(__func__, EVP_CIPHER_CTX_iv, context);
}

unsigned char *krEVP_CIPHER_CTX_iv_noconst(EVP_CIPHER_CTX *context) noexcept {
  return tracedBefore(__func__, EVP_CIPHER_CTX_iv_noconst, context);
}

EVP_CIPHER_CTX *krEVP_CIPHER_CTX_new() noexcept { return tracedBefore(__func__, EVP_CIPHER_CTX_new); }

void *krEVP_MD_CTX_md_data(const EVP_MD_CTX *context) noexcept {
  return tracedBefore(__func__, EVP_MD_CTX_md_data, context);
}

int krEVP_MD_CTX_test_flags(const EVP_MD_CTX *context) noexcept {
  return tracedBefore(__func__, EVP_MD_CTX_test_flags, context, EVP_MD_CTX_FLAG_NO_INIT);
}

int krEVP_MD_size(const EVP_MD_CTX *context) noexcept {
  return tracedBefore(__func__, [=] { return EVP_MD_size(EVP_MD_CTX_md(context)); });
}

void krHMAC_CTX_cleanup(HMAC_CTX *context) noexcept { tracedAround(__func__, HMAC_CTX_free, context); }

HMAC_CTX *krHMAC_CTX_new() noexcept { return tracedBefore(__func__, HMAC_CTX_new); }

void krRSA_get0_crt_params(const RSA *rsa, const BIGNUM **dmp1, const BIGNUM **dmq1, const BIGNUM **iqmp) noexcept {
  tracedAround(__func__, RSA_get0_crt_params, rsa, dmp1, dmq1, iqmp);
}

void krRSA_get0_factors(const RSA *rsa, const BIGNUM **p, const BIGNUM **q) noexcept {
  tracedAround(__func__, RSA_get0_factors, rsa, p, q);
}

void krRSA_get0_key(const RSA *rsa, const BIGNUM **n, const BIGNUM **e, const BIGNUM **d) noexcept {
  tracedAround(__func__, RSA_get0_key, rsa, n, e, d);
}

int krRSA_priv_dec(int length, const unsigned char *from, unsigned char *to, RSA *rsa, int padding) noexcept {
  return tracedBefore(__func__, RSA_meth_get_priv_dec(RSA_get_default_method()), length, from, to, rsa, padding);
}

int krRSA_private_encrypt(const RSA_METHOD *method, int length, const unsigned char *from, unsigned char *to, RSA *rsa,
                          int padding) noexcept {
  if (method != nullptr) {
    return tracedBefore(__func__, RSA_meth_get_priv_enc(method), length, from, to, rsa, padding);
  }
  const char *accessor = __func__;
  return tracedWork(accessor, [accessor] {
    krTraceLog(krOpenSSL::kTraceTag, "%s: rsaMethod is NULL", accessor);
    return 1;
  });
}

int krRSA_set0_crt_params(RSA *rsa, BIGNUM *dmp1, BIGNUM *dmq1, BIGNUM *iqmp) noexcept {
  return tracedBefore(__func__, RSA_set0_crt_params, rsa, dmp1, dmq1, iqmp);
}

int krRSA_set0_factors(RSA *rsa, BIGNUM *p, BIGNUM *q) noexcept {
  return tracedBefore(__func__, RSA_set0_factors, rsa, p, q);
}

int krRSA_set0_key(RSA *rsa, BIGNUM *n, BIGNUM *e, BIGNUM *d) noexcept {
  return tracedBefore(__func__, RSA_set0_key, rsa, n, e, d);
}

SSL_CTX *krSSL_get_SSL_CTX(const SSL *ssl) noexcept { return tracedBefore(__func__, SSL_get_SSL_CTX, ssl); }

const unsigned char *krX509_digest_data(const X509_SIG *digestInfo) noexcept {
  return tracedWork(__func__, [=] { return ASN1_STRING_get0_data(digestOf(digestInfo)); });
}

int krX509_digest_length(const X509_SIG *digestInfo) noexcept {
  return tracedWork(__func__, [=] { return ASN1_STRING_length(digestOf(digestInfo)); });
}
