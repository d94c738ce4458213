// The example's whole use of the library.
#include "Delegation.h"

#include "Failure.h"

#include <krOpenSSL/krDelegation.h>

#include <algorithm>
#include <mutex>
#include <span>
#include <utility>
#include <vector>

namespace delegated_tls {

using namespace krOpenSSL;

namespace {

/// Has the holder carry out the operation, and copies the result to where OpenSSL wants it: its length, or 0 when there
/// is none or it does not fit.
std::size_t deliver(WaitForHolder *wait, HeldKey &key, Operation operation, int padding, const Bytes &data,
                    std::span<unsigned char> out) {
  const std::optional<Bytes> result = wait(key, operation, padding, data);
  if (!result || result->size() > out.size()) {
    queueReason(key.trouble());
    return 0;
  }
  std::ranges::copy(*result, out.begin());
  return result->size();
}

/// The keys of useCallbackKey, by their moduli: with OpenSSL 3 a callback gets an object that is not the one that the
/// program has.
class HeldKeys {
public:
  void add(const RSA *rsa, HeldKey &key) {
    const std::scoped_lock lock(mutex_);
    if (find(rsa) == nullptr) {
      keys_.emplace_back(checked(BN_dup(RSA_get0_n(rsa)), "out of memory"), &key);
    }
  }
  HeldKey *of(const RSA *rsa) {
    const std::scoped_lock lock(mutex_);
    return find(rsa);
  }
  void clear() {
    const std::scoped_lock lock(mutex_);
    keys_.clear();
  }

private:
  HeldKey *find(const RSA *rsa) const {
    const auto found =
        std::ranges::find_if(keys_, [rsa](const auto &held) { return BN_cmp(held.first.get(), RSA_get0_n(rsa)) == 0; });
    return found != keys_.end() ? found->second : nullptr;
  }

  std::mutex mutex_;
  std::vector<std::pair<BIGNUMPtr, HeldKey *>> keys_;
};

HeldKeys heldKeys; // NOLINT(cert-err58-cpp): an empty vector does not throw

using RsaFunction = int (*)(int, const unsigned char *, unsigned char *, RSA *, int);

int performRsa(Operation operation, RsaFunction ownMethod, int flen, const unsigned char *from, unsigned char *to,
               RSA *rsa, int padding) {
  HeldKey *key = heldKeys.of(rsa);
  if (key == nullptr) {
    return ownMethod(flen, from, to, rsa, padding);
  }
  const std::span<unsigned char> out(to, static_cast<std::size_t>(RSA_size(rsa)));
  const std::size_t length = deliver(waitForHolder, *key, operation, padding, Bytes(from, from + flen), out);
  return length != 0 ? static_cast<int>(length) : -1;
}

int encryptByHolder(int flen, const unsigned char *from, unsigned char *to, RSA *rsa, int padding) {
  return performRsa(Operation::rsaPrivateEncrypt, RSA_meth_get_priv_enc(RSA_get_default_method()), flen, from, to, rsa,
                    padding);
}

int decryptByHolder(int flen, const unsigned char *from, unsigned char *to, RSA *rsa, int padding) {
  return performRsa(Operation::rsaPrivateDecrypt, RSA_meth_get_priv_dec(RSA_get_default_method()), flen, from, to, rsa,
                    padding);
}

} // namespace

std::optional<Bytes> waitForHolder(HeldKey &key, Operation operation, int padding, const Bytes &data) {
  return key.perform(operation, padding, data);
}

DelegatedKey delegated(const Library &library, HeldKey &key, WaitForHolder *wait) {
  const EVPPKeyPtr publicKey = publicKeyFrom(key.publicHalf());
  KeyOperations operations;
  operations.sign = [&key, wait](const SignRequest &request, std::span<unsigned char> out) {
    return deliver(wait, key, Operation::sign, 0, Bytes(request.digest.begin(), request.digest.end()), out);
  };
  if (EVP_PKEY_base_id(publicKey.get()) == EVP_PKEY_RSA) {
    operations.signPss = [&key, wait](const PssRequest &request, std::span<unsigned char> out) {
      const Bytes block(request.block.begin(), request.block.end());
      return deliver(wait, key, Operation::rsaPrivateEncrypt, RSA_NO_PADDING, block, out);
    };
  }
  return {library, publicKey.get(), std::move(operations)};
}

void useCallbackKey(SSL *ssl, HeldKey &held) {
  const EVPPKeyPtr key = publicKeyFrom(held.publicHalf());
  heldKeys.add(checked(krOpenSSL::keyObject::rsaOf(key.get()), "only RSA keys go through the RSA callbacks"), held);
  checked(SSL_use_PrivateKey(ssl, key.get()), "the key cannot be used");
}

RsaCallbacks::RsaCallbacks() {
  krEngineSetRSAPrivateKeyOpCallback(encryptByHolder, 1);
  krEngineSetRSAPrivateKeyOpCallback(decryptByHolder, 0);
}

RsaCallbacks::~RsaCallbacks() {
  krEngineSetRSAPrivateKeyOpCallback(nullptr, 1);
  krEngineSetRSAPrivateKeyOpCallback(nullptr, 0);
  heldKeys.clear();
}

} // namespace delegated_tls
