// The two ends in one process, with a pair of BIOs between them.
#include "support/Handshake.h"

#include "support/Callbacks.h"

#include <krOpenSSL/krFips.h>

#include <gtest/gtest.h>
#include <openssl/err.h>

namespace krTest {
namespace {

using krOpenSSL::SSLCtxPtr;
using krOpenSSL::X509Ptr;

X509Ptr certify(EVP_PKEY *key) {
  constexpr long kLifeSeconds = 3600;
  X509Ptr certificate(X509_new());
  X509_gmtime_adj(X509_getm_notBefore(certificate.get()), -kLifeSeconds);
  X509_gmtime_adj(X509_getm_notAfter(certificate.get()), kLifeSeconds);
  X509_set_pubkey(certificate.get(), key);
  // In FIPS mode OpenSSL 3 signs no certificate with a key that it made itself.
  const EVPPKeyPtr bound = kOpenSSL3 && krFipsMode() != 0 ? wholeCopy(key) : nullptr;
  X509_sign(certificate.get(), bound ? bound.get() : key, EVP_sha256());
  return certificate;
}

SSLCtxPtr makeContext(const SSL_METHOD *method, int version, const char *ciphers) {
  SSLCtxPtr context(SSL_CTX_new(method));
  SSL_CTX_set_security_level(context.get(), 0);
  SSL_CTX_set_min_proto_version(context.get(), version);
  SSL_CTX_set_max_proto_version(context.get(), version);
  SSL_CTX_set_cipher_list(context.get(), ciphers);
  SSL_CTX_set_dh_auto(context.get(), 1);
  return context;
}

} // namespace

Handshake::Handshake(int version, const char *ciphers, EVP_PKEY *owner, EVPPKeyPtr half)
    : key(std::move(half)), serverContext(makeContext(TLS_server_method(), version, ciphers)),
      clientContext(makeContext(TLS_client_method(), version, ciphers)) {
  const X509Ptr certificate = certify(owner);
  SSL_CTX_use_certificate(serverContext.get(), certificate.get());
  SSL_CTX_use_PrivateKey(serverContext.get(), key.get());
  X509_STORE_add_cert(SSL_CTX_get_cert_store(clientContext.get()), certificate.get());
  SSL_CTX_set_verify(clientContext.get(), SSL_VERIFY_PEER, nullptr);
  reconnect();
}

void Handshake::reconnect() {
  server.reset(SSL_new(serverContext.get()));
  client.reset(SSL_new(clientContext.get()));
  BIO *serverEnd = nullptr;
  BIO *clientEnd = nullptr;
  BIO_new_bio_pair(&serverEnd, 0, &clientEnd, 0);
  SSL_set_bio(server.get(), serverEnd, serverEnd);
  SSL_set_bio(client.get(), clientEnd, clientEnd);
}

// Providers get no PSS.
void Handshake::delegateTo(Provider &provider) const {
  SSL_set1_sigalgs_list(server.get(), "RSA+SHA256:ECDSA+SHA256:DSA+SHA256");
  provider.serve(serverContext.get());
  attach(key.get(), server.get());
}

int Handshake::step() const {
  SSL_connect(client.get());
  SSL_accept(server.get());
  ERR_clear_error();
  return SSL_is_init_finished(server.get()) + SSL_is_init_finished(client.get());
}

int Handshake::run() const {
  int finished = 0;
  for (int turn = 0; turn < 5; ++turn) {
    finished = step();
  }
  return finished;
}

void expectDelegated(int version, const char *ciphers, Kind kind, bool viaProvider) {
  SCOPED_TRACE(testing::Message() << version << ciphers << viaProvider);
  EVP_PKEY *owner = softwareKey(kind);
  // OpenSSL 3 decrypts what TLS transports with keys that it decoded itself, alone.
  const Handshake handshake(version, ciphers, owner, viaProvider ? publicHalf(owner) : decodedHalf(owner));
  Provider provider(signsWith(owner));
  if (viaProvider) {
    handshake.delegateTo(provider);
  }
  delegateToCallbacks(!viaProvider);
  EXPECT_EQ(handshake.run(), 2);
  EXPECT_EQ(provider.requests.size(), viaProvider ? 1U : 0U);
  EXPECT_EQ(callbacks, viaProvider ? 0 : 1);
}

} // namespace krTest
