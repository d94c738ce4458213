// A loaded key has the public half alone. It names a connection of its own, which never connects: through that the
// library finds the functions that ask the holder, whatever the program does with the key.
#include "Load.h"

#include "Errors.h"
#include "reference/ReferenceFile.h"

namespace krEngine {

using namespace krOpenSSL;

namespace {

// There for as long as the key, which owns it.
struct Behind {
  std::shared_ptr<const RemoteKey> remote;
  SSLPtr connection;
};

void freeBehind(void * /*parent*/, void *behind, CRYPTO_EX_DATA * /*data*/, int /*index*/, long /*number*/,
                void * /*pointer*/) {
  delete static_cast<Behind *>(behind);
}

int indexOf(int exClass) {
  const int fresh = CRYPTO_get_ex_new_index(exClass, 0, nullptr, nullptr, nullptr, freeBehind);
  if (fresh < 0) {
    throw std::bad_alloc();
  }
  return fresh;
}
int rsaIndex() {
  static const int index = indexOf(CRYPTO_EX_INDEX_RSA);
  return index;
}
int ecIndex() {
  static const int index = indexOf(CRYPTO_EX_INDEX_EC_KEY);
  return index;
}

// Set up with the first key, when the program has read its configuration, and never taken down: keys may be used while
// the process ends.
const Library &library() {
  static const Library &only = *new Library;
  return only;
}

template <class Object> Object *made(Object *object) {
  if (object == nullptr) {
    throw std::bad_alloc();
  }
  return object;
}

void give(EVP_PKEY *key, std::unique_ptr<Behind> behind) {
  const bool given = EVP_PKEY_base_id(key) == EVP_PKEY_RSA
                         ? RSA_set_ex_data(krOpenSSL::keyObject::rsaOf(key), rsaIndex(), behind.get()) == 1
                         : EC_KEY_set_ex_data(krOpenSSL::keyObject::ecKeyOf(key), ecIndex(), behind.get()) == 1;
  if (!given) {
    throw std::bad_alloc();
  }
  static_cast<void>(behind.release()); // the key's from here on
}

} // namespace

EVPPKeyPtr loadKey(ENGINE *engine, const char *file) {
  const auto remote = std::make_shared<const RemoteKey>(krHolder::readReferenceFile(file));
  const DelegatedKey delegated(library(), remote->publicKey(), operationsOf(remote));
  const SSLCtxPtr context(made(SSL_CTX_new(TLS_method())));
  auto behind = std::make_unique<Behind>(Behind{remote, SSLPtr(made(SSL_new(context.get())))});
  SSL *const connection = behind->connection.get();
  delegated.bindTo(connection);
  EVPPKeyPtr key(made(SSL_get_privatekey(connection)));
  EVP_PKEY_up_ref(key.get());
  SSL_certs_clear(connection); // the key owns the connection, not the other way round
  give(key.get(), std::move(behind));
  if (EVP_PKEY_set1_engine(key.get(), engine) != 1) {
    throw Failure(Reason::internal, "the engine's methods are refused");
  }
  return key;
}

const RemoteKey *remoteOf(EVP_PKEY *key) noexcept {
  const void *behind = nullptr;
  if (key != nullptr && EVP_PKEY_base_id(key) == EVP_PKEY_RSA) {
    behind = RSA_get_ex_data(krOpenSSL::keyObject::rsaOf(key), rsaIndex());
  } else if (key != nullptr && EVP_PKEY_base_id(key) == EVP_PKEY_EC) {
    behind = EC_KEY_get_ex_data(krOpenSSL::keyObject::ecKeyOf(key), ecIndex());
  }
  return behind != nullptr ? static_cast<const Behind *>(behind)->remote.get() : nullptr;
}

} // namespace krEngine
