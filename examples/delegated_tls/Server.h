// `delegated_tls serve`: a TLS server on loopback whose private key stays with the holder.
#pragma once

#include "TokenHolder.h"

#include <cstdint>
#include <string>

namespace delegated_tls {

struct ServeOptions {
  std::string certificateChain;
  std::string privateKey;
  std::uint16_t port = 0; ///< 0 takes a free one
  HolderKind holder = defaultHolderKind();
  std::optional<TokenOptions> token; ///< has the private key, when given; privateKey and holder say nothing then
};

/// Serves until SIGINT or SIGTERM. Throws a Failure when it cannot start.
void serve(const ServeOptions &options);

} // namespace delegated_tls
