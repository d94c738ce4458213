// The server: a handful of threads, each taking one connection after the other.
#include "Server.h"

#include "Connection.h"
#include "Delegation.h"
#include "Failure.h"
#include "StopSignals.h"
#include "Tls.h"

#include <openssl/pem.h>

#include <algorithm>
#include <array>
#include <iostream>
#include <mutex>
#include <set>
#include <sstream>
#include <thread>

namespace delegated_tls {
namespace {

using namespace krOpenSSL;

constexpr std::size_t kConnectionsAtOnce = 16;

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

// One write, so that lines of several connections stay whole.
void report(const std::ostringstream &line) { std::cerr << line.str() + "\n" << std::flush; }

void reportToken(const std::string &failure) {
  std::ostringstream line;
  line << "token failed: " << failure;
  report(line);
}

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

/// The connections being served, so that stopping the server does not wait for slow clients.
class LiveConnections {
public:
  class Entry {
  public:
    Entry(LiveConnections &all, const Descriptor &connection) : all_(all), descriptor_(connection.get()) {
      const std::scoped_lock lock(all_.mutex_);
      all_.descriptors_.insert(descriptor_);
      if (all_.stopped_) { // accepted just before
        stopConnection(descriptor_);
      }
    }
    ~Entry() {
      const std::scoped_lock lock(all_.mutex_);
      all_.descriptors_.erase(descriptor_);
    }
    Entry(const Entry &) = delete;
    Entry &operator=(const Entry &) = delete;

  private:
    LiveConnections &all_;
    int descriptor_;
  };

  void stopAll() {
    const std::scoped_lock lock(mutex_);
    stopped_ = true;
    for (const int descriptor : descriptors_) {
      stopConnection(descriptor);
    }
  }

private:
  std::mutex mutex_;
  std::set<int> descriptors_;
  bool stopped_ = false;
};

class Server {
public:
  explicit Server(const ServeOptions &options)
      : certificate_(readCertificate(options.certificateChain)), holder_(startHolderOf(options, certificate_.get())),
        key_(*holder_, 0), context_(checked(SSL_CTX_new(TLS_server_method()), "no TLS context could be made")),
        delegated_(delegated(library_, key_)), listener_(listenOnLoopback(options.port)) {
    if (key_.publicHalf() != publicKeyDer(X509_get0_pubkey(certificate_.get()))) {
      throw Failure("the private key in '" + options.privateKey + "' does not belong to the certificate in '" +
                    options.certificateChain + "'");
    }
    // Forward secrecy alone. DSA's suites are not among OpenSSL's own.
    checked(SSL_CTX_set_cipher_list(context_.get(), "ECDHE+AESGCM:ECDHE+CHACHA20:DHE+AESGCM"),
            "the ciphers were refused");
    SSL_CTX_set_min_proto_version(context_.get(), TLS1_2_VERSION);
    SSL_CTX_set_dh_auto(context_.get(), 1);
    checked(SSL_CTX_use_certificate_chain_file(context_.get(), options.certificateChain.c_str()),
            "the certificate chain cannot be used");
    delegated_.prepare(context_.get());
  }

  void run(const StopSignals &stopSignals) {
    std::ostringstream line;
    line << "listening on 127.0.0.1:" << portOf(listener_) << ", the private key is held by " << key_.holderName();
    report(line);
    std::array<std::jthread, kConnectionsAtOnce> threads;
    for (std::jthread &thread : threads) {
      thread = std::jthread([this] { acceptConnections(); });
    }
    stopSignals.wait();
    stopListening(listener_);
    live_.stopAll();
  }

private:
  void acceptConnections() {
    while (const Descriptor socket = acceptConnection(listener_)) {
      const std::string client = peerOf(socket);
      try {
        const LiveConnections::Entry entry(live_, socket);
        Connection connection(context_.get(), socket);
        serveConnection(connection);
      } catch (const std::exception &failure) {
        std::ostringstream line;
        line << "connection failed: " << failure.what() << " (client " << client << ')';
        report(line);
      }
    }
  }

  void serveConnection(Connection &connection) {
    delegated_.bindTo(connection.ssl());
    connection.shakeHands();
    const std::string agreed = describe(connection.ssl());
    std::ostringstream line;
    line << "handshake: " << agreed;
    report(line);
    if (const std::string request = connection.readRequest(); !request.empty()) {
      connection.write(answerTo(request, agreed));
    }
    connection.close();
  }

  std::string describe(SSL *ssl) const {
    std::ostringstream text;
    text << SSL_get_version(ssl) << ' ' << SSL_get_cipher_name(ssl) << ", signature "
         << (SSL_session_reused(ssl) != 0 ? "of an earlier handshake" : serverScheme(ssl)) << " by "
         << key_.holderName();
    return text.str();
  }

  // Whatever is asked for, the answer is what the handshake agreed on.
  static std::string answerTo(const std::string &request, const std::string &agreed) {
    return "HTTP/1.1 200 OK\r\nContent-Type: text/plain\r\nConnection: close\r\nContent-Length: " +
           std::to_string(agreed.size() + 1) + "\r\n\r\n" + (request.starts_with("HEAD ") ? "" : agreed + "\n");
  }

  X509Ptr certificate_;
  std::unique_ptr<KeyHolder> holder_;
  HeldKey key_;
  Library library_;
  SSLCtxPtr context_;
  DelegatedKey delegated_;
  Descriptor listener_;
  LiveConnections live_;
};

} // namespace

void serve(const ServeOptions &options) {
  const StopSignals stopSignals;
  Server(options).run(stopSignals);
}

} // namespace delegated_tls
