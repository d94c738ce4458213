// Contexts, connections and names.
#include "Tls.h"

#include "Failure.h"

#include <openssl/objects.h>

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
