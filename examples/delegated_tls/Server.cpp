// The server: a handful of threads, each taking one connection after the other.
#include "Server.h"

#include "Delegation.h"
#include "Failure.h"
#include "StopSignals.h"
#include "Tls.h"

#include <openssl/err.h>
#include <openssl/pem.h>

#include <algorithm>
#include <array>
#include <iostream>
#include <mutex>
#include <set>
#include <sstream>
#include <string_view>
#include <thread>

namespace delegated_tls {
namespace {

using namespace krOpenSSL;

constexpr std::size_t kConnectionsAtOnce = 16;
constexpr std::chrono::seconds kConnectionTimeout{10};
constexpr std::size_t kMaxRequestBytes = 8192;

// What each key type may do through a provider. RSA-PSS, TLS 1.3's only RSA scheme, is not among it, and
// neither is RSA key transport, so that RSA stays below TLS 1.3 and with ephemeral key exchange.
struct Profile {
  int keyType;
  int highestVersion;
  const char *ciphers;
  const char *signatureAlgorithms;
};
constexpr std::array kProfiles{
    Profile{EVP_PKEY_RSA, TLS1_2_VERSION, "ECDHE+aRSA+AESGCM:DHE+aRSA+AESGCM", "RSA+SHA256:RSA+SHA384:RSA+SHA512"},
    Profile{EVP_PKEY_EC, TLS1_3_VERSION, "ECDHE+ECDSA+AESGCM", "ECDSA+SHA256:ECDSA+SHA384:ECDSA+SHA512"},
    Profile{EVP_PKEY_DSA, TLS1_2_VERSION, "DHE+DSS+AESGCM", "DSA+SHA256"},
};

const Profile &profileOf(EVP_PKEY *key) {
  requireSupportedType(key);
  return *std::ranges::find(kProfiles, EVP_PKEY_base_id(key), &Profile::keyType);
}

X509Ptr readCertificate(const std::string &path) {
  const BIOPtr file(BIO_new_file(path.c_str(), "r"));
  if (!file) {
    throw opensslFailure("cannot read the certificate chain '" + path + "'");
  }
  X509Ptr certificate(PEM_read_bio_X509(file.get(), nullptr, nullptr, nullptr));
  if (!certificate) {
    throw opensslFailure("'" + path + "' holds no PEM certificate");
  }
  return certificate;
}

// One write, so that lines of several connections stay whole.
void report(const std::ostringstream &line) { std::cerr << line.str() + "\n" << std::flush; }

std::string readRequest(SSL *ssl) {
  std::string request;
  std::array<char, 1024> part{};
  const auto deadline = std::chrono::steady_clock::now() + kConnectionTimeout;
  while (std::chrono::steady_clock::now() < deadline && request.size() < kMaxRequestBytes &&
         request.find("\r\n\r\n") == std::string::npos) {
    const int got = SSL_read(ssl, part.data(), static_cast<int>(part.size()));
    if (got <= 0) {
      break;
    }
    request.append(part.data(), static_cast<std::size_t>(got));
  }
  return request;
}

/// The connections being served, so that stopping the server does not wait for slow clients.
class LiveConnections {
public:
  class Entry {
  public:
    Entry(LiveConnections &all, const Descriptor &connection) : all_(all), descriptor_(connection.get()) {
      const std::scoped_lock lock(all_.mutex_);
      all_.descriptors_.insert(descriptor_);
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
    for (const int descriptor : descriptors_) {
      stopConnection(descriptor);
    }
  }

private:
  std::mutex mutex_;
  std::set<int> descriptors_;
};

class Server {
public:
  explicit Server(const ServeOptions &options)
      : certificate_(readCertificate(options.certificateChain)),
        profile_(profileOf(X509_get0_pubkey(certificate_.get()))),
        holder_(startHolder(options.holder,
                            [&options] {
                              std::vector<PrivateKey> keys;
                              keys.push_back(PrivateKey::fromPemFile(options.privateKey));
                              return keys;
                            })),
        key_(*holder_, 0), context_(makeContext(TLS_server_method(), profile_.ciphers, profile_.signatureAlgorithms)),
        delegated_(delegated(library_, key_)), listener_(listenOnLoopback(options.port)) {
    if (key_.publicHalf() != publicKeyDer(X509_get0_pubkey(certificate_.get()))) {
      throw Failure("the private key in '" + options.privateKey + "' does not belong to the certificate in '" +
                    options.certificateChain + "'");
    }
    SSL_CTX_set_min_proto_version(context_.get(), TLS1_2_VERSION);
    SSL_CTX_set_max_proto_version(context_.get(), profile_.highestVersion);
    checked(SSL_CTX_use_certificate_chain_file(context_.get(), options.certificateChain.c_str()),
            "the certificate chain cannot be used");
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
    while (const Descriptor connection = acceptConnection(listener_)) {
      try {
        setTimeout(connection, kConnectionTimeout);
        const LiveConnections::Entry entry(live_, connection);
        serveConnection(connection);
      } catch (const std::exception &failure) {
        std::ostringstream line;
        line << "connection failed: " << failure.what();
        report(line);
      }
    }
  }

  void serveConnection(const Descriptor &connection) {
    const SSLPtr ssl = makeConnection(context_.get(), connection);
    delegated_.bindTo(ssl.get());
    ERR_clear_error();
    if (SSL_accept(ssl.get()) != 1) {
      throw opensslFailure("handshake failed");
    }
    const std::string agreed = describe(ssl.get());
    std::ostringstream line;
    line << "handshake: " << agreed;
    report(line);
    if (readRequest(ssl.get()).starts_with("GET ")) {
      answer(ssl.get(), agreed);
    }
    SSL_shutdown(ssl.get());
  }

  std::string describe(SSL *ssl) const {
    std::ostringstream text;
    text << SSL_get_version(ssl) << ' ' << SSL_get_cipher_name(ssl) << ", signature "
         << (SSL_session_reused(ssl) != 0 ? "of an earlier handshake" : serverScheme(ssl)) << " by "
         << key_.holderName();
    return text.str();
  }

  static void answer(SSL *ssl, const std::string &agreed) {
    const std::string text = "HTTP/1.1 200 OK\r\nContent-Type: text/plain\r\nConnection: close\r\nContent-Length: " +
                             std::to_string(agreed.size() + 1) + "\r\n\r\n" + agreed + "\n";
    SSL_write(ssl, text.data(), static_cast<int>(text.size()));
  }

  X509Ptr certificate_;
  const Profile &profile_;
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
