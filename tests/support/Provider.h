// A provider that records what it is asked, and connections whose keys it serves.
#pragma once

#include "support/Keys.h"

#include <krOpenSSL/krDelegation.h>

#include <functional>

namespace krTest {

struct Request {
  int type;
  int keySize;
  Bytes digest;
  int capacity;
  std::int32_t lengthOnEntry;
  bool operator==(const Request &) const = default;
};

class Provider {
public:
  using Behaviour = std::function<bool(const Request &request, unsigned char *out, std::int32_t *outLength)>;

  explicit Provider(Behaviour behaviour);
  Provider(const Provider &) = delete;
  Provider &operator=(const Provider &) = delete;

  /// Puts the record on the context, which this object has to outlive.
  void serve(SSL_CTX *context) { SSL_CTX_set_ex_data(context, kropenssl_get_ssl_ctx_idx(), &record_); }

  std::vector<Request> requests;

private:
  Behaviour behaviour_;
  ift_provider record_;
};

/// The behaviours of a provider.
Provider::Behaviour writes(Bytes bytes);
Provider::Behaviour signsWith(EVP_PKEY *key);
/// Writes nothing, sets the length and gives the result.
Provider::Behaviour claims(std::int32_t length, bool result = true);

/// A connection that is never used for a handshake, for keys to point to.
struct Connection {
  explicit Connection(Provider::Behaviour behaviour);

  Provider provider;
  krOpenSSL::SSLCtxPtr context;
  krOpenSSL::SSLPtr ssl;
};

} // namespace krTest
