// What providers answer.
#include "support/Provider.h"

#include <algorithm>
#include <utility>

namespace krTest {

Provider::Provider(Behaviour behaviour) : behaviour_(std::move(behaviour)), record_{} {
  record_.arg = this;
  record_.callback = [](void *arg, int type, int keySize, const unsigned char *data, int dataLength, unsigned char *out,
                        int capacity, std::int32_t *outLength) {
    auto *self = static_cast<Provider *>(arg);
    self->requests.push_back({type, keySize, Bytes(data, data + dataLength), capacity, *outLength});
    return self->behaviour_(self->requests.back(), out, outLength);
  };
}

Provider::Behaviour writes(Bytes bytes) {
  return [bytes = std::move(bytes)](const Request & /*request*/, unsigned char *out, std::int32_t *outLength) {
    std::copy(bytes.begin(), bytes.end(), out);
    *outLength = static_cast<std::int32_t>(bytes.size());
    return true;
  };
}

Provider::Behaviour signsWith(EVP_PKEY *key) {
  return [key](const Request &request, unsigned char *out, std::int32_t *outLength) {
    return writes(signDigest(key, request.digest))(request, out, outLength);
  };
}

Provider::Behaviour claims(std::int32_t length, bool result) {
  return [=](const Request & /*request*/, unsigned char * /*out*/, std::int32_t *outLength) {
    *outLength = length;
    return result;
  };
}

Connection::Connection(Provider::Behaviour behaviour)
    : provider(std::move(behaviour)), context(SSL_CTX_new(TLS_server_method())), ssl(SSL_new(context.get())) {
  provider.serve(context.get());
}

} // namespace krTest
