// Full TLS handshakes in memory: a key delegated to an in-process callback against a plain software key of
// OpenSSL's own method.
#include "Bench.h"

#include <krOpenSSL/krHandles.h>

#include <openssl/objects.h>
#include <openssl/x509.h>

#include <array>

namespace {

using namespace krOpenSSL;

enum class Kind { rsa, ec };

/// A key made before set-up, so that it is OpenSSL's own, and a self-signed certificate over it.
class Identity {
public:
  explicit Identity(Kind kind) : kind_(kind), certificate_(X509_new()) {
    const EVPPKeyCtxPtr context(EVP_PKEY_CTX_new_id(kind == Kind::rsa ? EVP_PKEY_RSA : EVP_PKEY_EC, nullptr));
    EVP_PKEY_keygen_init(context.get());
    if (kind == Kind::ec) {
      EVP_PKEY_CTX_set_ec_paramgen_curve_nid(context.get(), NID_X9_62_prime256v1);
    }
    EVP_PKEY *key = nullptr;
    EVP_PKEY_keygen(context.get(), &key);
    key_.reset(key);
    X509_gmtime_adj(X509_getm_notBefore(certificate_.get()), 0);
    X509_gmtime_adj(X509_getm_notAfter(certificate_.get()), 3600);
    X509_set_pubkey(certificate_.get(), key_.get());
    X509_sign(certificate_.get(), key_.get(), EVP_sha256());
  }

  EVP_PKEY *key() const { return key_.get(); }
  X509 *certificate() const { return certificate_.get(); }
  const char *signatureAlgorithms() const { return kind_ == Kind::rsa ? "RSA+SHA256" : "ECDSA+SHA256"; }

  /// The public half as a key object of its own, bound to the engine and to the connection.
  EVPPKeyPtr delegatedTo(SSL *ssl) const {
    EVPPKeyPtr half(EVP_PKEY_new());
    if (kind_ == Kind::rsa) {
      RSA *rsa = RSAPublicKey_dup(EVP_PKEY_get0_RSA(key_.get()));
      RSA_set_ex_data(rsa, kropenssl_get_rsa_idx(), ssl);
      EVP_PKEY_assign_RSA(half.get(), rsa);
    } else {
      EC_KEY *ec = EC_KEY_new();
      EC_KEY_set_group(ec, EC_KEY_get0_group(EVP_PKEY_get0_EC_KEY(key_.get())));
      EC_KEY_set_public_key(ec, EC_KEY_get0_public_key(EVP_PKEY_get0_EC_KEY(key_.get())));
      EC_KEY_set_ex_data(ec, kropenssl_get_ecdsa_idx(), ssl);
      EVP_PKEY_assign_EC_KEY(half.get(), ec);
    }
    return half;
  }

  static bool sign(void *arg, int /*type*/, int /*keySize*/, const unsigned char *digest, int length,
                   unsigned char *out, int /*capacity*/, std::int32_t *outLength) {
    const auto &identity = *static_cast<Identity *>(arg);
    unsigned written = 0;
    const int done = identity.kind_ == Kind::rsa
                         ? RSA_sign(NID_sha256, digest, static_cast<unsigned>(length), out, &written,
                                    EVP_PKEY_get0_RSA(identity.key()))
                         : ECDSA_sign(0, digest, length, out, &written, EVP_PKEY_get0_EC_KEY(identity.key()));
    *outLength = static_cast<std::int32_t>(written);
    return done == 1;
  }

private:
  Kind kind_;
  X509Ptr certificate_;
  EVPPKeyPtr key_;
};

Identity &identity(Kind kind) {
  static Identity rsa(Kind::rsa);
  static Identity ec(Kind::ec);
  return kind == Kind::rsa ? rsa : ec;
}

SSLCtxPtr makeContext(const SSL_METHOD *method, int version) {
  SSLCtxPtr context(SSL_CTX_new(method));
  SSL_CTX_set_min_proto_version(context.get(), version);
  SSL_CTX_set_max_proto_version(context.get(), version);
  return context;
}

bool shakeHands(SSL *server, SSL *client) {
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

void handshakes(benchmark::State &state, int version, Kind kind, bool delegated) {
  const Identity &who = identity(kind);
  const SSLCtxPtr server = makeContext(TLS_server_method(), version);
  const SSLCtxPtr client = makeContext(TLS_client_method(), version);
  SSL_CTX_use_certificate(server.get(), who.certificate());
  SSL_CTX_set1_sigalgs_list(server.get(), who.signatureAlgorithms());
  SSL_CTX_set_session_cache_mode(server.get(), SSL_SESS_CACHE_OFF);
  ift_provider provider{nullptr, Identity::sign, &identity(kind)};
  SSL_CTX_set_ex_data(server.get(), kropenssl_get_ssl_ctx_idx(), &provider);
  for ([[maybe_unused]] auto _ : state) {
    const SSLPtr serverEnd(SSL_new(server.get()));
    const SSLPtr clientEnd(SSL_new(client.get()));
    if (delegated) {
      SSL_use_PrivateKey(serverEnd.get(), who.delegatedTo(serverEnd.get()).get());
    } else {
      SSL_use_PrivateKey(serverEnd.get(), who.key());
    }
    if (!shakeHands(serverEnd.get(), clientEnd.get())) {
      state.SkipWithError("no handshake");
      break;
    }
  }
  state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations()));
}

BENCHMARK_CAPTURE(handshakes, tls12_rsa_plain, TLS1_2_VERSION, Kind::rsa, false);
BENCHMARK_CAPTURE(handshakes, tls12_rsa_delegated, TLS1_2_VERSION, Kind::rsa, true);
BENCHMARK_CAPTURE(handshakes, tls12_ecdsa_plain, TLS1_2_VERSION, Kind::ec, false);
BENCHMARK_CAPTURE(handshakes, tls12_ecdsa_delegated, TLS1_2_VERSION, Kind::ec, true);
BENCHMARK_CAPTURE(handshakes, tls13_ecdsa_plain, TLS1_3_VERSION, Kind::ec, false);
BENCHMARK_CAPTURE(handshakes, tls13_ecdsa_delegated, TLS1_3_VERSION, Kind::ec, true);

} // namespace

int main(int argc, char **argv) {
  identity(Kind::rsa);
  return runBenchmarks(argc, argv);
}
