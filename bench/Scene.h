// Full TLS handshakes in memory, server and client on the same thread, with a plain software key of OpenSSL's own
// method or one that is delegated in the process, to a provider or to the process-wide callback.
#pragma once

#include "Keys.h"

#include <openssl/x509.h>

#include <array>

namespace bench {

enum class Way { plain, provider, callback };

struct Suite {
  const char *name; // suite/way
  int version;
  Kind kind;
  const char *signatureAlgorithm;
  Way way;
};

// TLS 1.3 signs with RSA-PSS, which a provider refuses.
inline constexpr std::array kSuites{
    Suite{"TLS 1.2 RSA-2048/plain", TLS1_2_VERSION, Kind::rsa, "RSA+SHA256", Way::plain},
    Suite{"TLS 1.2 RSA-2048/provider", TLS1_2_VERSION, Kind::rsa, "RSA+SHA256", Way::provider},
    Suite{"TLS 1.2 RSA-2048/callback", TLS1_2_VERSION, Kind::rsa, "RSA+SHA256", Way::callback},
    Suite{"TLS 1.2 ECDSA P-256/plain", TLS1_2_VERSION, Kind::ec, "ECDSA+SHA256", Way::plain},
    Suite{"TLS 1.2 ECDSA P-256/provider", TLS1_2_VERSION, Kind::ec, "ECDSA+SHA256", Way::provider},
    Suite{"TLS 1.2 ECDSA P-256/callback", TLS1_2_VERSION, Kind::ec, "ECDSA+SHA256", Way::callback},
    Suite{"TLS 1.3 RSA-2048/plain", TLS1_3_VERSION, Kind::rsa, "RSA-PSS+SHA256", Way::plain},
    Suite{"TLS 1.3 RSA-2048/callback", TLS1_3_VERSION, Kind::rsa, "RSA-PSS+SHA256", Way::callback},
    Suite{"TLS 1.3 ECDSA P-256/plain", TLS1_3_VERSION, Kind::ec, "ECDSA+SHA256", Way::plain},
    Suite{"TLS 1.3 ECDSA P-256/provider", TLS1_3_VERSION, Kind::ec, "ECDSA+SHA256", Way::provider},
    Suite{"TLS 1.3 ECDSA P-256/callback", TLS1_3_VERSION, Kind::ec, "ECDSA+SHA256", Way::callback},
};

inline krOpenSSL::X509Ptr certify(EVP_PKEY *key) {
  krOpenSSL::X509Ptr certificate(X509_new());
  X509_gmtime_adj(X509_getm_notBefore(certificate.get()), 0);
  X509_gmtime_adj(X509_getm_notAfter(certificate.get()), 3600);
  X509_set_pubkey(certificate.get(), key);
  X509_sign(certificate.get(), key, EVP_sha256());
  return certificate;
}

inline krOpenSSL::SSLCtxPtr makeContext(const SSL_METHOD *method, int version) {
  krOpenSSL::SSLCtxPtr context(SSL_CTX_new(method));
  SSL_CTX_set_min_proto_version(context.get(), version);
  SSL_CTX_set_max_proto_version(context.get(), version);
  return context;
}

inline bool shakeHands(SSL *server, SSL *client) {
  BIO *serverSide = nullptr;
  BIO *clientSide = nullptr;
  BIO_new_bio_pair(&serverSide, 0, &clientSide, 0);
  SSL_set_bio(server, serverSide, serverSide);
  SSL_set_bio(client, clientSide, clientSide);
  SSL_set_accept_state(server);
  SSL_set_connect_state(client);
  for (int turn = 0; turn < 20 && !(SSL_is_init_finished(server) && SSL_is_init_finished(client)); ++turn) {
    SSL_do_handshake(client);
    SSL_do_handshake(server);
  }
  return SSL_is_init_finished(server) != 0 && SSL_is_init_finished(client) != 0;
}

/// A server and its clients, for any number of threads. Its key is given once to all its connections, except by
/// provider: there every connection gets a key object of its own.
class Scene {
public:
  explicit Scene(const Suite &suite)
      : kind_(suite.kind), way_(suite.way), server_(makeContext(TLS_server_method(), suite.version)),
        client_(makeContext(TLS_client_method(), suite.version)), delegated_(delegatedKey(suite.kind)) {
    SSL_CTX_use_certificate(server_.get(), certify(ownKey(kind_)).get());
    SSL_CTX_set1_sigalgs_list(server_.get(), suite.signatureAlgorithm);
    SSL_CTX_set_session_cache_mode(server_.get(), SSL_SESS_CACHE_OFF);
    if (way_ == Way::plain) {
      SSL_CTX_use_PrivateKey(server_.get(), ownKey(kind_));
    } else if (way_ == Way::callback) {
      SSL_CTX_use_PrivateKey(server_.get(), krOpenSSL::publicHalf(ownKey(kind_)).get());
    }
  }

  // Not inlined: its instructions are counted by its name.
  [[gnu::noinline]] bool play() const {
    const krOpenSSL::SSLPtr server(SSL_new(server_.get()));
    const krOpenSSL::SSLPtr client(SSL_new(client_.get()));
    if (way_ == Way::provider) {
      delegated_.bindTo(server.get());
    }
    return shakeHands(server.get(), client.get());
  }

private:
  Kind kind_;
  Way way_;
  krOpenSSL::SSLCtxPtr server_;
  krOpenSSL::SSLCtxPtr client_;
  krOpenSSL::DelegatedKey delegated_;
};

} // namespace bench
