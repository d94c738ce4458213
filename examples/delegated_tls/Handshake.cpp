// Server and client of one demo line, each on its thread.
#include "Handshake.h"

#include "Failure.h"
#include "Tls.h"

#include <openssl/x509v3.h>

#include <array>
#include <chrono>
#include <future>
#include <string_view>

namespace delegated_tls {
namespace {

using namespace krOpenSSL;

constexpr std::chrono::seconds kTimeout{10};
constexpr std::string_view kMessage = "delegated";

SSLCtxPtr versionContext(const SSL_METHOD *method, const Scenario &scenario) {
  SSLCtxPtr context = makeContext(method, scenario.ciphers, scenario.signatureAlgorithms);
  checked(SSL_CTX_set_min_proto_version(context.get(), scenario.version), "the TLS version was refused");
  checked(SSL_CTX_set_max_proto_version(context.get(), scenario.version), "the TLS version was refused");
  return context;
}

void giveKey(SSL *ssl, const Scenario &scenario) {
  switch (scenario.way) {
  case Way::provider:
    return delegated(*scenario.library, *scenario.heldKey).bindTo(ssl);
  case Way::callback:
    return useCallbackKey(ssl, *scenario.heldKey);
  case Way::software:
    checked(SSL_use_PrivateKey(ssl, scenario.softwareKey), "the key cannot be used");
  }
}

void serveOnce(const Scenario &scenario, const Descriptor &listener) {
  const SSLCtxPtr context = versionContext(TLS_server_method(), scenario);
  checked(SSL_CTX_use_certificate(context.get(), scenario.certificate), "the certificate cannot be used");
  const Descriptor socket = acceptConnection(listener);
  setTimeout(socket, kTimeout);
  const SSLPtr ssl = makeConnection(context.get(), socket);
  giveKey(ssl.get(), scenario);
  checked(SSL_accept(ssl.get()) == 1, "the server's handshake failed");
  std::array<char, kMessage.size()> message{};
  const int got = SSL_read(ssl.get(), message.data(), static_cast<int>(message.size()));
  checked(got > 0 && SSL_write(ssl.get(), message.data(), got) == got, "the server could not echo");
  SSL_shutdown(ssl.get());
}

SSLPtr makeClient(SSL_CTX *context, const Descriptor &socket, X509 *authority) {
  checked(X509_STORE_add_cert(SSL_CTX_get_cert_store(context), authority), "the authority cannot be trusted");
  SSLPtr ssl = makeConnection(context, socket);
  SSL_set_verify(ssl.get(), SSL_VERIFY_PEER, nullptr);
  checked(SSL_set1_host(ssl.get(), "localhost"), "out of memory");
  return ssl;
}

Outcome connectOnce(const Scenario &scenario, std::uint16_t port) {
  const SSLCtxPtr context = versionContext(TLS_client_method(), scenario);
  const Descriptor socket = connectToLoopback(port);
  setTimeout(socket, kTimeout);
  const SSLPtr ssl = makeClient(context.get(), socket, scenario.authority);
  const auto start = std::chrono::steady_clock::now();
  checked(SSL_connect(ssl.get()) == 1, "the client's handshake failed");
  const std::chrono::duration<double, std::milli> took = std::chrono::steady_clock::now() - start;
  std::array<char, kMessage.size()> echo{};
  SSL_write(ssl.get(), kMessage.data(), static_cast<int>(kMessage.size()));
  const int got = SSL_read(ssl.get(), echo.data(), static_cast<int>(echo.size()));
  checked(std::string_view(echo.data(), got > 0 ? static_cast<std::size_t>(got) : 0) == kMessage,
          "the client got no echo");
  return {SSL_get_version(ssl.get()), SSL_get_cipher_name(ssl.get()), peerScheme(ssl.get()), took.count()};
}

} // namespace

Outcome shakeHands(const Scenario &scenario) {
  const Descriptor listener = listenOnLoopback(0);
  auto server = std::async(std::launch::async, [&] { serveOnce(scenario, listener); });
  std::string clientFailure;
  Outcome outcome;
  try {
    outcome = connectOnce(scenario, portOf(listener));
  } catch (const Failure &failure) {
    clientFailure = failure.what();
    stopListening(listener);
  }
  server.get(); // the server's reason comes first: it is the side under test
  if (!clientFailure.empty()) {
    throw Failure(clientFailure);
  }
  return outcome;
}

} // namespace delegated_tls
