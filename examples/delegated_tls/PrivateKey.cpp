// Software keys: reading, generating, signing and decrypting through OpenSSL's own methods.
#include "PrivateKey.h"

#include "Failure.h"

#include <krOpenSSL/krDelegate.hpp>

#include <openssl/dh.h>
#include <openssl/err.h>
#include <openssl/pem.h>

#include <array>

namespace delegated_tls {
namespace {

using namespace krOpenSSL;

// Nobody is at the keyboard of a key holder, so an encrypted file is refused instead of asked about.
int refusePassword(char * /*buffer*/, int /*size*/, int /*writing*/, void * /*context*/) { return -1; }

/// Makes an EVP key of a freshly made key object: @p make fills it, @p assign hands it over.
template <class KeyPtr, class Set> EVPPKeyPtr wrap(KeyPtr object, Set set) {
  EVPPKeyPtr key(checked(EVP_PKEY_new(), "out of memory"));
  checked(set(key.get(), object.get()), "the key cannot be used");
  return key;
}

std::optional<Bytes> resized(Bytes out, int length) {
  if (length <= 0) {
    ERR_clear_error();
    return std::nullopt;
  }
  out.resize(static_cast<std::size_t>(length));
  return out;
}

// With OpenSSL 3 the object of a key that was read is made at the first look: here, before the library is set up, since
// one that is made later goes by its engine, whose callbacks come back to it.
void takeObject(EVP_PKEY *key) {
  keyObject::rsaOf(key);
  keyObject::dsaOf(key);
  keyObject::ecKeyOf(key);
  ERR_clear_error(); // two of the three are of another type
}

} // namespace

PrivateKey PrivateKey::fromPemFile(const std::string &path) {
  const BIOPtr file(BIO_new_file(path.c_str(), "r"));
  if (!file) {
    throw opensslFailure("cannot read the private key '" + path + "'");
  }
  EVPPKeyPtr key(PEM_read_bio_PrivateKey(file.get(), nullptr, refusePassword, nullptr));
  if (!key) {
    throw opensslFailure("'" + path + "' holds no private key in clear PEM form");
  }
  requireSupportedType(key.get());
  takeObject(key.get());
  return PrivateKey(std::move(key));
}

PrivateKey PrivateKey::generateRsa() {
  RSAPtr rsa(checked(RSA_new(), "out of memory"));
  const BIGNUMPtr exponent(checked(BN_new(), "out of memory"));
  BN_set_word(exponent.get(), RSA_F4);
  checked(RSA_generate_key_ex(rsa.get(), 2048, exponent.get(), nullptr), "no RSA key could be made");
  return PrivateKey(wrap(std::move(rsa), EVP_PKEY_set1_RSA));
}

PrivateKey PrivateKey::generateEc() {
  ECKeyPtr ec(checked(EC_KEY_new_by_curve_name(NID_X9_62_prime256v1), "out of memory"));
  checked(EC_KEY_generate_key(ec.get()), "no EC key could be made");
  return PrivateKey(wrap(std::move(ec), EVP_PKEY_set1_EC_KEY));
}

PrivateKey PrivateKey::generateDsa() {
  // RFC 5114, 2.3: a 2048-bit group with a 256-bit subgroup, which spares us the search for one.
  const DHPtr group(checked(DH_get_2048_256(), "out of memory"));
  DSAPtr dsa(checked(DSA_new(), "out of memory"));
  checked(DSA_set0_pqg(dsa.get(), BN_dup(DH_get0_p(group.get())), BN_dup(DH_get0_q(group.get())),
                       BN_dup(DH_get0_g(group.get()))),
          "out of memory");
  checked(DSA_generate_key(dsa.get()), "no DSA key could be made");
  return PrivateKey(wrap(std::move(dsa), EVP_PKEY_set1_DSA));
}

Bytes PrivateKey::publicHalf() const { return publicKeyDer(key_.get()); }

std::optional<Bytes> PrivateKey::perform(Operation operation, int padding, const Bytes &data) const {
  if (operation == Operation::sign) {
    return sign(data);
  }
  if (EVP_PKEY_base_id(key_.get()) != EVP_PKEY_RSA) {
    return std::nullopt;
  }
  RSA *rsa = keyObject::rsaOf(key_.get());
  Bytes out(static_cast<std::size_t>(RSA_size(rsa)));
  const auto function = operation == Operation::rsaPrivateEncrypt ? RSA_private_encrypt : RSA_private_decrypt;
  const int length = function(static_cast<int>(data.size()), data.data(), out.data(), rsa, padding);
  return resized(std::move(out), length);
}

std::optional<Bytes> PrivateKey::sign(const Bytes &digest) const {
  Bytes out(static_cast<std::size_t>(EVP_PKEY_size(key_.get())));
  unsigned length = 0;
  const auto digestLength = static_cast<unsigned>(digest.size());
  const int signedLength = static_cast<int>(digestLength);
  int done = 0;
  switch (EVP_PKEY_base_id(key_.get())) {
  case EVP_PKEY_RSA:
    done = RSA_sign(hashOfLength(digest.size()), digest.data(), digestLength, out.data(), &length,
                    keyObject::rsaOf(key_.get()));
    break;
  case EVP_PKEY_DSA:
    done = DSA_sign(0, digest.data(), signedLength, out.data(), &length, keyObject::dsaOf(key_.get()));
    break;
  default:
    done = ECDSA_sign(0, digest.data(), signedLength, out.data(), &length, keyObject::ecKeyOf(key_.get()));
  }
  return resized(std::move(out), done == 1 ? static_cast<int>(length) : 0);
}

Bytes publicKeyDer(EVP_PKEY *key) {
  const int length = i2d_PUBKEY(key, nullptr);
  Bytes der(static_cast<std::size_t>(length > 0 ? length : 0));
  unsigned char *cursor = der.data();
  checked(length > 0 && i2d_PUBKEY(key, &cursor) > 0, "the public key cannot be encoded");
  return der;
}

EVPPKeyPtr publicKeyFrom(const Bytes &der) {
  const unsigned char *cursor = der.data();
  return EVPPKeyPtr(checked(d2i_PUBKEY(nullptr, &cursor, static_cast<long>(der.size())), "the public key is unusable"));
}

void requireSupportedType(EVP_PKEY *key) {
  const int type = EVP_PKEY_base_id(key);
  if (type != EVP_PKEY_RSA && type != EVP_PKEY_EC && type != EVP_PKEY_DSA) {
    const char *name = OBJ_nid2sn(type);
    throw Failure(std::string("keys of type ") + (name != nullptr ? name : "unknown") +
                  " are not supported: use an RSA, EC or DSA key");
  }
}

} // namespace delegated_tls
