// The example's whole use of the library.
#include "Delegation.h"

#include "Failure.h"

#include <krOpenSSL/krDelegation.h>

#include <algorithm>
#include <span>

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

/// Where an RSA key of useCallbackKey names its holder.
int heldKeyIndex() {
  static const int index = RSA_get_ex_new_index(0, nullptr, nullptr, nullptr, nullptr);
  return index;
}

using RsaFunction = int (*)(int, const unsigned char *, unsigned char *, RSA *, int);

int performRsa(Operation operation, RsaFunction ownMethod, int flen, const unsigned char *from, unsigned char *to,
               RSA *rsa, int padding) {
  auto *key = static_cast<HeldKey *>(RSA_get_ex_data(rsa, heldKeyIndex()));
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
  RSA *rsa = checked(EVP_PKEY_get0_RSA(key.get()), "only RSA keys go through the RSA callbacks");
  checked(RSA_set_ex_data(rsa, heldKeyIndex(), &held), "the key cannot be delegated");
  checked(SSL_use_PrivateKey(ssl, key.get()), "the key cannot be used");
}

RsaCallbacks::RsaCallbacks() {
  krEngineSetRSAPrivateKeyOpCallback(encryptByHolder, 1);
  krEngineSetRSAPrivateKeyOpCallback(decryptByHolder, 0);
}

RsaCallbacks::~RsaCallbacks() {
  krEngineSetRSAPrivateKeyOpCallback(nullptr, 1);
  krEngineSetRSAPrivateKeyOpCallback(nullptr, 0);
}

} // namespace delegated_tls
