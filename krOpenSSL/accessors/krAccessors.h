// The traced accessors: OpenSSL's functions under the library's prefix, each writing "Start - name" and
// "End - name". Arguments, results and ownership are those of the wrapped call unless said otherwise.
#pragma once

#include <openssl/dh.h>
#include <openssl/dsa.h>
#include <openssl/ec.h>
#include <openssl/engine.h>
#include <openssl/evp.h>
#include <openssl/hmac.h>
#include <openssl/rsa.h>
#include <openssl/ssl.h>
#include <openssl/x509.h>

void krDH_get0_key(const DH *dh, const BIGNUM **publicKey, const BIGNUM **privateKey) noexcept;
void krDH_get0_pqg(const DH *dh, const BIGNUM **p, const BIGNUM **q, const BIGNUM **g) noexcept;
int krDH_set0_key(DH *dh, BIGNUM *publicKey, BIGNUM *privateKey) noexcept;
int krDH_set0_pqg(DH *dh, BIGNUM *p, BIGNUM *q, BIGNUM *g) noexcept;

/// Runs the sign function of DSA_get_default_method(), whatever method the key carries.
DSA_SIG *krDSA_do_sign(const unsigned char *digest, int length, DSA *dsa) noexcept;
void krDSA_get0_key(const DSA *dsa, const BIGNUM **publicKey, const BIGNUM **privateKey) noexcept;
void krDSA_get0_pqg(const DSA *dsa, const BIGNUM **p, const BIGNUM **q, const BIGNUM **g) noexcept;
int krDSA_set0_key(DSA *dsa, BIGNUM *publicKey, BIGNUM *privateKey) noexcept;
int krDSA_set0_pqg(DSA *dsa, BIGNUM *p, BIGNUM *q, BIGNUM *g) noexcept;

/// Runs the signature function of a fresh copy of EC_KEY_get_default_method(), whatever method the key
/// carries. Null also when the copy cannot be made.
ECDSA_SIG *krECDSA_do_sign_ex(const unsigned char *digest, int length, const BIGNUM *kinv, const BIGNUM *r,
                              EC_KEY *key) noexcept;
void *krECDSA_get_ex_data(const EC_KEY *key, int index) noexcept;
int krECDSA_get_ex_new_index(long argl, void *argp, CRYPTO_EX_new *newFunction, CRYPTO_EX_dup *dupFunction,
                             CRYPTO_EX_free *freeFunction) noexcept;

void krENGINE_register_ECDSA(ENGINE *engine) noexcept;
void krENGINE_unregister_ECDSA(ENGINE *engine) noexcept;

/// Frees the context; null is skipped.
void krEVP_CIPHER_CTX_Cleanup(EVP_CIPHER_CTX *context) noexcept;
int krEVP_CIPHER_CTX_encrypting(const EVP_CIPHER_CTX *context) noexcept;
void *krEVP_CIPHER_CTX_get_cipher_data(const EVP_CIPHER_CTX *context) noexcept;
const unsigned char *krEVP_CIPHER_CTX_iv(const EVP_CIPHER_CTX *context) noexcept;
unsigned char *krEVP_CIPHER_CTX_iv_noconst(EVP_CIPHER_CTX *context) noexcept;
EVP_CIPHER_CTX *krEVP_CIPHER_CTX_new() noexcept;

void *krEVP_MD_CTX_md_data(const EVP_MD_CTX *context) noexcept;
/// Tests EVP_MD_CTX_FLAG_NO_INIT, the one flag its callers ask about.
int krEVP_MD_CTX_test_flags(const EVP_MD_CTX *context) noexcept;
/// The size of the context's digest; takes a context, not a digest.
int krEVP_MD_size(const EVP_MD_CTX *context) noexcept;

/// Frees the context; null is skipped.
void krHMAC_CTX_cleanup(HMAC_CTX *context) noexcept;
HMAC_CTX *krHMAC_CTX_new() noexcept;

void krRSA_get0_crt_params(const RSA *rsa, const BIGNUM **dmp1, const BIGNUM **dmq1, const BIGNUM **iqmp) noexcept;
void krRSA_get0_factors(const RSA *rsa, const BIGNUM **p, const BIGNUM **q) noexcept;
void krRSA_get0_key(const RSA *rsa, const BIGNUM **n, const BIGNUM **e, const BIGNUM **d) noexcept;
/// Runs the private-decrypt function of RSA_get_default_method(), whatever method the key carries.
int krRSA_priv_dec(int length, const unsigned char *from, unsigned char *to, RSA *rsa, int padding) noexcept;
/// Runs the private-encrypt function of @p method; returns 1 and says so when the method is null.
int krRSA_private_encrypt(const RSA_METHOD *method, int length, const unsigned char *from, unsigned char *to, RSA *rsa,
                          int padding) noexcept;
int krRSA_set0_crt_params(RSA *rsa, BIGNUM *dmp1, BIGNUM *dmq1, BIGNUM *iqmp) noexcept;
int krRSA_set0_factors(RSA *rsa, BIGNUM *p, BIGNUM *q) noexcept;
int krRSA_set0_key(RSA *rsa, BIGNUM *n, BIGNUM *e, BIGNUM *d) noexcept;

SSL_CTX *krSSL_get_SSL_CTX(const SSL *ssl) noexcept;

/// The digest octets of a DigestInfo; they belong to @p digestInfo.
const unsigned char *krX509_digest_data(const X509_SIG *digestInfo) noexcept;
int krX509_digest_length(const X509_SIG *digestInfo) noexcept;
