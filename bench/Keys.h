// Keys for the benchmarks: software keys of OpenSSL's own methods, and public halves that delegate to them in
// the process, so that what is measured beside the signature itself is the delegation.
#pragma once

#include <krOpenSSL/krHandles.h>
#include <krOpenSSL/krOpenSSL.h>

#include <openssl/objects.h>

#include <cstdint>

namespace bench {

enum class Kind { rsa, ec };

/// A new RSA-2048 or P-256 key. Made before the library is set up, it is OpenSSL's own; afterwards it is bound
/// to the engine.
inline krOpenSSL::EVPPKeyPtr generate(Kind kind) {
  const krOpenSSL::EVPPKeyCtxPtr context(EVP_PKEY_CTX_new_id(kind == Kind::rsa ? EVP_PKEY_RSA : EVP_PKEY_EC, nullptr));
  EVP_PKEY_keygen_init(context.get());
  if (kind == Kind::ec) {
    EVP_PKEY_CTX_set_ec_paramgen_curve_nid(context.get(), NID_X9_62_prime256v1);
  }
  EVP_PKEY *key = nullptr;
  EVP_PKEY_keygen(context.get(), &key);
  return krOpenSSL::EVPPKeyPtr(key);
}

/// The process's key of that kind that is OpenSSL's own; the first call comes before the library is set up.
inline EVP_PKEY *ownKey(Kind kind) {
  static const krOpenSSL::EVPPKeyPtr rsa = generate(Kind::rsa);
  static const krOpenSSL::EVPPKeyPtr ec = generate(Kind::ec);
  return (kind == Kind::rsa ? rsa : ec).get();
}

/// A new key object, bound to the engine, with the public half of ownKey.
inline krOpenSSL::EVPPKeyPtr publicHalf(Kind kind) {
  krOpenSSL::EVPPKeyPtr half(EVP_PKEY_new());
  if (kind == Kind::rsa) {
    const RSA *own = EVP_PKEY_get0_RSA(ownKey(kind));
    RSA *rsa = RSA_new();
    RSA_set0_key(rsa, BN_dup(RSA_get0_n(own)), BN_dup(RSA_get0_e(own)), nullptr);
    EVP_PKEY_assign_RSA(half.get(), rsa);
  } else {
    const EC_KEY *own = EVP_PKEY_get0_EC_KEY(ownKey(kind));
    EC_KEY *ec = EC_KEY_new();
    EC_KEY_set_group(ec, EC_KEY_get0_group(own));
    EC_KEY_set_public_key(ec, EC_KEY_get0_public_key(own));
    EVP_PKEY_assign_EC_KEY(half.get(), ec);
  }
  return half;
}

/// The public half with the connection's name on it: it signs through the connection's provider.
inline krOpenSSL::EVPPKeyPtr connectionHalf(Kind kind, SSL *ssl) {
  krOpenSSL::EVPPKeyPtr half = publicHalf(kind);
  if (kind == Kind::rsa) {
    RSA_set_ex_data(EVP_PKEY_get0_RSA(half.get()), kropenssl_get_rsa_idx(), ssl);
  } else {
    EC_KEY_set_ex_data(EVP_PKEY_get0_EC_KEY(half.get()), kropenssl_get_ecdsa_idx(), ssl);
  }
  return half;
}

inline bool signByOwnKey(void * /*arg*/, int type, int /*keySize*/, const unsigned char *digest, int length,
                         unsigned char *out, int /*capacity*/, std::int32_t *outLength) {
  unsigned written = 0;
  const bool done = type == NID_md5_sha1
                        ? RSA_sign(NID_sha256, digest, static_cast<unsigned>(length), out, &written,
                                   EVP_PKEY_get0_RSA(ownKey(Kind::rsa))) == 1
                        : ECDSA_sign(0, digest, length, out, &written, EVP_PKEY_get0_EC_KEY(ownKey(Kind::ec))) == 1;
  *outLength = static_cast<std::int32_t>(written);
  return done;
}

/// The record for SSL_CTX objects whose connections sign with ownKey.
inline ift_provider ownKeyProvider{nullptr, signByOwnKey, nullptr};

inline int encryptByOwnKey(int flen, const unsigned char *from, unsigned char *to, RSA * /*rsa*/, int padding) {
  return RSA_private_encrypt(flen, from, to, EVP_PKEY_get0_RSA(ownKey(Kind::rsa)), padding);
}

inline ECDSA_SIG *signEcdsaByOwnKey(const unsigned char *digest, int length, const BIGNUM *kinv, const BIGNUM *r,
                                    EC_KEY * /*eckey*/) {
  return ECDSA_do_sign_ex(digest, length, kinv, r, EVP_PKEY_get0_EC_KEY(ownKey(Kind::ec)));
}

/// Registers the process-wide callbacks for its life.
struct Callbacks {
  Callbacks() {
    krEngineSetRSAPrivateKeyOpCallback(encryptByOwnKey, 1);
    krEngineSetECDSAPrivateKeyOpCallback(signEcdsaByOwnKey);
  }
  ~Callbacks() {
    krEngineSetRSAPrivateKeyOpCallback(nullptr, 1);
    krEngineSetECDSAPrivateKeyOpCallback(nullptr);
  }
  Callbacks(const Callbacks &) = delete;
  Callbacks &operator=(const Callbacks &) = delete;
};

} // namespace bench
