// `delegated_tls serve`: what a TLS server on loopback offers whose private key stays with the holder.
#pragma once

#include "Delegation.h"
#include "TokenHolder.h"

#include <cstdint>
#include <string>

namespace delegated_tls {

struct ServeOptions {
  std::string certificateChain;
  std::string privateKey;
  std::string clientAuthorities; ///< those that clients' certificates have to come from; empty: clients show none
  std::uint16_t port = 0;        ///< 0 takes a free one
  unsigned threads = 0;          ///< 0 leaves it to the server
  HolderKind holder = defaultHolderKind();
  std::optional<TokenOptions> token; ///< has the private key, when given; privateKey and holder say nothing then
};

/// Serves until SIGINT or SIGTERM. Throws a Failure when it cannot start.
void serve(const ServeOptions &options);

/// How long a connection may take with all that it does, and the wait for its client at its end.
inline constexpr std::chrono::seconds kConnectionTime{10};
inline constexpr std::chrono::seconds kFinishTime{2};
inline constexpr std::size_t kMostRequestBytes = 8192;

/// The key, and what is said with it.
class Service {
public:
  /// @param wait  how the key holder's answers are waited for
  Service(const ServeOptions &options, WaitForHolder *wait);

  /// A connection that signs through the holder, without a transport.
  krOpenSSL::SSLPtr connection() const;

  std::string holderName() const { return key_.holderName(); }

  /// What a finished handshake agreed on.
  std::string describe(SSL *ssl) const;

  /// Whatever is asked for, the answer is what the handshake agreed on.
  static std::string answerTo(const std::string &request, const std::string &agreed);

  /// Whether the head of the request is there (RFC 9112, 2.2: a line may end in a line feed alone).
  static bool isWhole(const std::string &request);

private:
  void limitClients(const std::string &authorities);

  krOpenSSL::X509Ptr certificate_;
  std::unique_ptr<KeyHolder> holder_;
  HeldKey key_;
  krOpenSSL::Library library_;
  krOpenSSL::SSLCtxPtr context_;
  krOpenSSL::DelegatedKey delegated_;
};

/// One line for people. Lines of several connections stay whole.
void report(const std::string &line);

} // namespace delegated_tls
