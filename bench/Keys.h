// Keys for the benchmarks: software keys of OpenSSL's own methods, and public halves that delegate to them in
// the process, so that what is measured beside the signature itself is the delegation.
#pragma once

#include <krOpenSSL/krDelegate.hpp>
#include <krOpenSSL/krOpenSSL.h>

#include <openssl/objects.h>

#include <cstddef>
#include <span>

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

inline std::size_t signByOwnKey(Kind kind, std::span<const unsigned char> digest, unsigned char *out) {
  unsigned written = 0;
  const auto length = static_cast<unsigned>(digest.size());
  const int done = kind == Kind::rsa ? RSA_sign(NID_sha256, digest.data(), length, out, &written,
                                                krOpenSSL::keyObject::rsaOf(ownKey(Kind::rsa)))
                                     : ECDSA_sign(0, digest.data(), static_cast<int>(length), out, &written,
                                                  krOpenSSL::keyObject::ecKeyOf(ownKey(Kind::ec)));
  return done == 1 ? written : 0;
}

/// The key whose connections sign with ownKey, by provider.
inline krOpenSSL::DelegatedKey delegatedKey(Kind kind) {
  const krOpenSSL::Library library; // up already
  return {library, ownKey(kind), [kind](const krOpenSSL::SignRequest &request, std::span<unsigned char> out) {
            return signByOwnKey(kind, request.digest, out.data());
          }};
}

inline int encryptByOwnKey(int flen, const unsigned char *from, unsigned char *to, RSA * /*rsa*/, int padding) {
  return RSA_private_encrypt(flen, from, to, krOpenSSL::keyObject::rsaOf(ownKey(Kind::rsa)), padding);
}

inline ECDSA_SIG *signEcdsaByOwnKey(const unsigned char *digest, int length, const BIGNUM *kinv, const BIGNUM *r,
                                    EC_KEY * /*eckey*/) {
  return ECDSA_do_sign_ex(digest, length, kinv, r, krOpenSSL::keyObject::ecKeyOf(ownKey(Kind::ec)));
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
