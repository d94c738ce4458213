// Contexts, connections and names.
#include "Tls.h"

#include "Failure.h"

#include <openssl/objects.h>

#include <algorithm>
#include <array>

namespace delegated_tls {

using krOpenSSL::SSLCtxPtr;
using krOpenSSL::SSLPtr;

SSLCtxPtr makeContext(const SSL_METHOD *method, const char *ciphers, const char *signatureAlgorithms) {
  SSLCtxPtr context(checked(SSL_CTX_new(method), "no TLS context could be made"));
  checked(SSL_CTX_set_cipher_list(context.get(), ciphers), "the ciphers were refused");
  checked(SSL_CTX_set1_sigalgs_list(context.get(), signatureAlgorithms), "the signature algorithms were refused");
  SSL_CTX_set_dh_auto(context.get(), 1);
  return context;
}

SSLPtr makeConnection(SSL_CTX *context, const Descriptor &socket) {
  SSLPtr ssl(checked(SSL_new(context), "no TLS connection could be made"));
  checked(SSL_set_fd(ssl.get(), socket.get()), "no TLS connection could be made");
  return ssl;
}

// The curves that RFC 8422, 5.1.1 leaves, and those of RFC 7027. Others have no number in TLS, or one that clients do
// not offer any more.
void requireTlsCurve(EVP_PKEY *key) {
  static constexpr std::array kCurves{NID_X9_62_prime256v1, NID_secp384r1,       NID_secp521r1,
                                      NID_brainpoolP256r1,  NID_brainpoolP384r1, NID_brainpoolP512r1};
  if (EVP_PKEY_base_id(key) != EVP_PKEY_EC) {
    return;
  }
  const EC_GROUP *group = EC_KEY_get0_group(krOpenSSL::keyObject::ecKeyOf(key));
  const bool isNamed = EC_GROUP_get_asn1_flag(group) == OPENSSL_EC_NAMED_CURVE;
  const int curve = isNamed ? EC_GROUP_get_curve_name(group) : NID_undef;
  if (std::ranges::find(kCurves, curve) == kCurves.end()) {
    throw Failure("no TLS client can use an EC key " +
                  (isNamed ? std::string("on the curve ") + OBJ_nid2sn(curve) : "whose curve has no name") +
                  ": make one on P-256, P-384 or P-521");
  }
}

std::string schemeName(int digestNid, int signatureNid) {
  struct Row {
    int digest;
    int signature;
    const char *name;
  };
  static constexpr std::array kRows{
      Row{NID_md5_sha1, EVP_PKEY_RSA, "rsa_pkcs1_md5_sha1"}, Row{NID_sha256, EVP_PKEY_RSA, "rsa_pkcs1_sha256"},
      Row{NID_sha384, EVP_PKEY_RSA, "rsa_pkcs1_sha384"},     Row{NID_sha512, EVP_PKEY_RSA, "rsa_pkcs1_sha512"},
      Row{NID_sha256, EVP_PKEY_RSA_PSS, "rsa_pss_sha256"},   Row{NID_sha384, EVP_PKEY_RSA_PSS, "rsa_pss_sha384"},
      Row{NID_sha512, EVP_PKEY_RSA_PSS, "rsa_pss_sha512"},   Row{NID_sha256, EVP_PKEY_EC, "ecdsa_sha256"},
      Row{NID_sha384, EVP_PKEY_EC, "ecdsa_sha384"},          Row{NID_sha512, EVP_PKEY_EC, "ecdsa_sha512"},
      Row{NID_sha256, EVP_PKEY_DSA, "dsa_sha256"},           Row{NID_undef, NID_undef, "none"},
  };
  for (const Row &row : kRows) {
    if (row.digest == digestNid && row.signature == signatureNid) {
      return row.name;
    }
  }
  return std::string(OBJ_nid2sn(signatureNid)) + "+" + OBJ_nid2sn(digestNid);
}

std::string serverScheme(SSL *ssl) {
  int digest = NID_undef;
  int signature = NID_undef;
  SSL_get_signature_nid(ssl, &digest);
  SSL_get_signature_type_nid(ssl, &signature);
  return schemeName(digest, signature);
}

std::string peerScheme(SSL *ssl) {
  int digest = NID_undef;
  int signature = NID_undef;
  SSL_get_peer_signature_nid(ssl, &digest);
  SSL_get_peer_signature_type_nid(ssl, &signature);
  return schemeName(digest, signature);
}

} // namespace delegated_tls
