// Making, copying and using the tests' keys.
#include "support/Keys.h"

#include <krOpenSSL/krDelegate.hpp>
#include <krOpenSSL/krDelegation.h>
#include <krOpenSSL/krLifecycle.h>

#include <openssl/err.h>

#include <array>

namespace krTest {
namespace {

EVPPKeyPtr generate(int type, int curve) {
  EVP_PKEY *key = nullptr;
  const EVPPKeyCtxPtr context(EVP_PKEY_CTX_new_id(type, nullptr));
  EVP_PKEY_keygen_init(context.get()); // RSA with 2048 bits
  if (type == EVP_PKEY_EC) {
    EVP_PKEY_CTX_set_ec_paramgen_curve_nid(context.get(), curve);
  }
  EVP_PKEY_keygen(context.get(), &key);
  return EVPPKeyPtr(key);
}

// Over the group of RFC 5114, 2.3, since finding a group takes long.
EVPPKeyPtr generateDsa() {
  const krOpenSSL::DHPtr group(DH_get_2048_256());
  krOpenSSL::DSAPtr dsa(DSA_new());
  DSA_set0_pqg(dsa.get(), BN_dup(DH_get0_p(group.get())), BN_dup(DH_get0_q(group.get())),
               BN_dup(DH_get0_g(group.get())));
  const EVPPKeyPtr parameters(EVP_PKEY_new());
  EVP_PKEY_assign_DSA(parameters.get(), dsa.release());
  const EVPPKeyCtxPtr context(EVP_PKEY_CTX_new(parameters.get(), nullptr));
  EVP_PKEY *key = nullptr;
  EVP_PKEY_keygen_init(context.get());
  EVP_PKEY_keygen(context.get(), &key);
  return EVPPKeyPtr(key);
}

EVPPKeyPtr make(Kind kind) {
  // As the library's set-up does: no exit handler, no configuration file.
  OPENSSL_init_crypto(OPENSSL_INIT_NO_ATEXIT | OPENSSL_INIT_NO_LOAD_CONFIG, nullptr);
  constexpr std::array kCurves{0, 0, NID_X9_62_prime256v1, NID_secp384r1, NID_secp521r1};
  const int curve = kCurves.at(static_cast<std::size_t>(kind));
  return kind == Kind::dsa ? generateDsa() : generate(curve == 0 ? EVP_PKEY_RSA : EVP_PKEY_EC, curve);
}

template <class Encode, class Decode> EVPPKeyPtr copyThrough(EVP_PKEY *key, Encode encode, Decode decode) {
  Bytes der(static_cast<std::size_t>(encode(key, nullptr)));
  unsigned char *end = der.data();
  encode(key, &end);
  const unsigned char *cursor = der.data();
  return EVPPKeyPtr(decode(nullptr, &cursor, static_cast<long>(der.size())));
}

EVPPKeyCtxPtr contextFor(EVP_PKEY *key, std::size_t digestLength, int padding, int (*init)(EVP_PKEY_CTX *)) {
  EVPPKeyCtxPtr context(EVP_PKEY_CTX_new(key, nullptr));
  init(context.get());
  for (const EVP_MD *hash : {EVP_sha1(), EVP_sha224(), EVP_sha256(), EVP_md5_sha1(), EVP_sha384(), EVP_sha512()}) {
    if (EVP_PKEY_base_id(key) == EVP_PKEY_RSA && EVP_MD_size(hash) == static_cast<int>(digestLength)) {
      EVP_PKEY_CTX_set_rsa_padding(context.get(), padding);
      EVP_PKEY_CTX_set_signature_md(context.get(), hash);
    }
  }
  return context;
}

} // namespace

Library::Library() {
  for (const Kind kind : kKinds) {
    softwareKey(kind);
  }
  krOSSLSetup();
}

Library::~Library() { krOSSLCleanup(); }

EVP_PKEY *softwareKey(Kind kind) {
  static std::array<EVPPKeyPtr, std::size(kKinds)> keys;
  EVPPKeyPtr &key = keys.at(static_cast<std::size_t>(kind));
  if (!key) {
    key = make(kind);
    // With OpenSSL 3 the key's object is made now, over OpenSSL's own method, or with the engine's later.
    rsaOf(key.get());
    dsaOf(key.get());
    ecKeyOf(key.get());
    ERR_clear_error();
  }
  return key.get();
}

EVPPKeyPtr decodedHalf(EVP_PKEY *key) { return copyThrough(key, i2d_PUBKEY, d2i_PUBKEY); }

// With OpenSSL 3 what it decodes has no object of its own.
EVPPKeyPtr wholeCopy(EVP_PKEY *key) {
  return kOpenSSL3 ? krOpenSSL::engineKey(key) : copyThrough(key, i2d_PrivateKey, d2i_AutoPrivateKey);
}
EVPPKeyPtr publicHalf(EVP_PKEY *key) { return kOpenSSL3 ? krOpenSSL::publicHalf(key) : decodedHalf(key); }

void attach(EVP_PKEY *key, SSL *ssl) {
  if (RSA *rsa = rsaOf(key); rsa != nullptr) {
    RSA_set_ex_data(rsa, kropenssl_get_rsa_idx(), ssl);
  } else if (DSA *dsa = dsaOf(key); dsa != nullptr) {
    DSA_set_ex_data(dsa, kropenssl_get_dsa_idx(), ssl);
  } else {
    EC_KEY_set_ex_data(ecKeyOf(key), kropenssl_get_ecdsa_idx(), ssl);
  }
  ERR_clear_error(); // a look for a key of another type is an error
}

Bytes signDigest(EVP_PKEY *key, const Bytes &digest, int padding) {
  const EVPPKeyCtxPtr context = contextFor(key, digest.size(), padding, EVP_PKEY_sign_init);
  Bytes signature(static_cast<std::size_t>(EVP_PKEY_size(key)));
  std::size_t length = signature.size();
  const bool made = EVP_PKEY_sign(context.get(), signature.data(), &length, digest.data(), digest.size()) > 0;
  signature.resize(made ? length : 0);
  return signature;
}

Bytes derSignature(std::size_t rBytes, std::size_t sBytes) {
  const auto ones = [](std::size_t length) {
    return BN_bin2bn(Bytes(length, 0xff).data(), static_cast<int>(length), nullptr);
  };
  const krOpenSSL::ECDSASigPtr signature(ECDSA_SIG_new());
  ECDSA_SIG_set0(signature.get(), ones(rBytes), ones(sBytes));
  Bytes der(static_cast<std::size_t>(i2d_ECDSA_SIG(signature.get(), nullptr)));
  unsigned char *end = der.data();
  i2d_ECDSA_SIG(signature.get(), &end);
  return der;
}

bool verifies(EVP_PKEY *key, const Bytes &digest, const Bytes &signature, int padding) {
  const EVPPKeyCtxPtr context = contextFor(key, digest.size(), padding, EVP_PKEY_verify_init);
  return EVP_PKEY_verify(context.get(), signature.data(), signature.size(), digest.data(), digest.size()) == 1;
}

} // namespace krTest
