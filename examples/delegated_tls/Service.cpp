// The certificate, the holder, the context, and what is answered.
#include "Service.h"

#include "Failure.h"
#include "Tls.h"

#include <openssl/pem.h>

#include <array>
#include <iostream>
#include <sstream>

namespace delegated_tls {
namespace {

using namespace krOpenSSL;

X509Ptr readCertificate(const std::string &path) {
  const BIOPtr file(BIO_new_file(path.c_str(), "r"));
  if (!file) {
    throw opensslFailure("cannot read the certificate chain '" + path + "'");
  }
  X509Ptr certificate(PEM_read_bio_X509(file.get(), nullptr, nullptr, nullptr));
  if (!certificate) {
    throw opensslFailure("'" + path + "' holds no PEM certificate");
  }
  requireSupportedType(X509_get0_pubkey(certificate.get()));
  requireTlsCurve(X509_get0_pubkey(certificate.get()));
  return certificate;
}

void reportToken(const std::string &failure) { report("token failed: " + failure); }

std::unique_ptr<KeyHolder> startHolderOf(const ServeOptions &options, X509 *certificate) {
  if (options.token) {
    return startTokenHolder(*options.token, publicKeyDer(X509_get0_pubkey(certificate)), reportToken);
  }
  return startHolder(options.holder, [&options] {
    std::vector<PrivateKey> keys;
    keys.push_back(PrivateKey::fromPemFile(options.privateKey));
    return keys;
  });
}

} // namespace

void report(const std::string &line) { std::cerr << line + "\n" << std::flush; } // one write

Service::Service(const ServeOptions &options, WaitForHolder *wait)
    : certificate_(readCertificate(options.certificateChain)), holder_(startHolderOf(options, certificate_.get())),
      key_(*holder_, 0), context_(checked(SSL_CTX_new(TLS_server_method()), "no TLS context could be made")),
      delegated_(delegated(library_, key_, wait)) {
  if (key_.publicHalf() != publicKeyDer(X509_get0_pubkey(certificate_.get()))) {
    throw Failure("the private key in '" + options.privateKey + "' does not belong to the certificate in '" +
                  options.certificateChain + "'");
  }
  // Forward secrecy alone. DSA's suites are not among OpenSSL's own.
  checked(SSL_CTX_set_cipher_list(context_.get(), "ECDHE+AESGCM:ECDHE+CHACHA20:DHE+AESGCM"),
          "the ciphers were refused");
  SSL_CTX_set_min_proto_version(context_.get(), TLS1_2_VERSION);
  SSL_CTX_set_dh_auto(context_.get(), 1);
  SSL_CTX_set_options(context_.get(), SSL_OP_NO_RENEGOTIATION);
  SSL_CTX_set_mode(context_.get(), SSL_MODE_RELEASE_BUFFERS);
  checked(SSL_CTX_use_certificate_chain_file(context_.get(), options.certificateChain.c_str()),
          "the certificate chain cannot be used");
  if (!options.clientAuthorities.empty()) {
    limitClients(options.clientAuthorities);
  }
  delegated_.prepare(context_.get());
}

void Service::limitClients(const std::string &authorities) {
  constexpr std::array<unsigned char, 1> kOneServer{1};
  STACK_OF(X509_NAME) *names = SSL_load_client_CA_file(authorities.c_str());
  if (names == nullptr || SSL_CTX_load_verify_locations(context_.get(), authorities.c_str(), nullptr) != 1) {
    throw opensslFailure("cannot read the clients' authorities '" + authorities + "'");
  }
  SSL_CTX_set_client_CA_list(context_.get(), names);
  SSL_CTX_set_verify(context_.get(), SSL_VERIFY_PEER | SSL_VERIFY_FAIL_IF_NO_PEER_CERT, nullptr);
  SSL_CTX_set_session_id_context(context_.get(), kOneServer.data(), kOneServer.size());
}

SSLPtr Service::connection() const {
  SSLPtr ssl(checked(SSL_new(context_.get()), "no TLS connection could be made"));
  delegated_.bindTo(ssl.get());
  SSL_set_accept_state(ssl.get());
  return ssl;
}

std::string Service::describe(SSL *ssl) const {
  std::ostringstream text;
  text << SSL_get_version(ssl) << ' ' << SSL_get_cipher_name(ssl) << ", signature "
       << (SSL_session_reused(ssl) != 0 ? "of an earlier handshake" : serverScheme(ssl)) << " by " << key_.holderName();
  return text.str();
}

std::string Service::answerTo(const std::string &request, const std::string &agreed) {
  return "HTTP/1.1 200 OK\r\nContent-Type: text/plain\r\nConnection: close\r\nContent-Length: " +
         std::to_string(agreed.size() + 1) + "\r\n\r\n" + (request.starts_with("HEAD ") ? "" : agreed + "\n");
}

bool Service::isWhole(const std::string &request) {
  return request.find("\n\r\n") != std::string::npos || request.find("\n\n") != std::string::npos;
}

} // namespace delegated_tls
