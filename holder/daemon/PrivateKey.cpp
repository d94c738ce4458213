// What a private key does for a request, by OpenSSL.
#include "PrivateKey.h"

#include "Premaster.h"

#include <openssl/err.h>
#include <openssl/rand.h>
#include <openssl/sha.h>

#include <array>

namespace krHolder {

namespace {

using krOpenSSL::EVPPKeyCtxPtr;

constexpr std::size_t kLongestKeyBytes = 2048;
constexpr std::size_t kPremasterPaddingBytes = 11;

// In the order of Digest.
const std::array<const EVP_MD *(*)(), 7> kDigests{
    []() -> const EVP_MD * { return nullptr; }, EVP_md5_sha1, EVP_sha1, EVP_sha224, EVP_sha256, EVP_sha384, EVP_sha512};

const EVP_MD *algorithmOf(Digest digest) { return kDigests.at(static_cast<std::size_t>(digest))(); }

void require(bool possible, const char *otherwise) {
  if (!possible) {
    throw Refusal(Status::badRequest, otherwise);
  }
}

// A call of OpenSSL's on the key. Its reasons are not for the client.
void mustDo(bool done) {
  if (!done) {
    ERR_clear_error();
    throw Refusal(Status::failed, "the key's operation failed");
  }
}

bool isRsa(const EVP_PKEY *key) { return EVP_PKEY_base_id(key) == EVP_PKEY_RSA; }

bool fits(Scheme scheme, const EVP_PKEY *key) {
  switch (EVP_PKEY_base_id(key)) {
  case EVP_PKEY_RSA:
    return scheme != Scheme::ecdsa;
  case EVP_PKEY_RSA_PSS:
    return scheme == Scheme::pss;
  default:
    return scheme == Scheme::ecdsa;
  }
}

Bytes digestOf(const Bytes &message, const EVP_MD *algorithm) {
  Bytes digest(static_cast<std::size_t>(EVP_MD_size(algorithm)));
  mustDo(EVP_Digest(message.data(), message.size(), digest.data(), nullptr, algorithm, nullptr) == 1);
  return digest;
}

EVPPKeyCtxPtr contextOf(EVP_PKEY *key, int (*begin)(EVP_PKEY_CTX *)) {
  EVPPKeyCtxPtr context(EVP_PKEY_CTX_new(key, nullptr));
  mustDo(context != nullptr && begin(context.get()) == 1);
  return context;
}

// OpenSSL asks for the room first, and tells in the end how much of it is used.
template <class Operation> Bytes resultOf(EVP_PKEY_CTX *context, Operation operate, const Bytes &data) {
  std::size_t length = 0;
  mustDo(operate(context, nullptr, &length, data.data(), data.size()) == 1);
  Bytes out(length);
  mustDo(operate(context, out.data(), &length, data.data(), data.size()) == 1);
  out.resize(length);
  return out;
}

void setPss(EVP_PKEY_CTX *context, const Sign &request) {
  const EVP_MD *const mask = algorithmOf(request.maskDigest);
  require(mask != nullptr, "PSS needs a mask digest");
  mustDo(EVP_PKEY_CTX_set_rsa_mgf1_md(context, mask) == 1);
  mustDo(EVP_PKEY_CTX_set_rsa_pss_saltlen(context, request.saltBytes) == 1);
}

void setOaep(EVP_PKEY_CTX *context, const Decrypt &request) {
  const EVP_MD *const digest = algorithmOf(request.digest);
  const EVP_MD *const mask = algorithmOf(request.maskDigest);
  require(digest != nullptr && mask != nullptr, "OAEP needs a digest and a mask digest");
  mustDo(EVP_PKEY_CTX_set_rsa_oaep_md(context, digest) == 1 && EVP_PKEY_CTX_set_rsa_mgf1_md(context, mask) == 1);
  if (!request.label.empty()) {
    void *label = OPENSSL_memdup(request.label.data(), request.label.size());
    const bool taken = label != nullptr &&
                       EVP_PKEY_CTX_set0_rsa_oaep_label(context, label, static_cast<int>(request.label.size())) == 1;
    if (!taken) {
      OPENSSL_free(label);
    }
    mustDo(taken);
  }
}

} // namespace

PrivateKey::PrivateKey(krOpenSSL::EVPPKeyPtr key) : key_(std::move(key)) {
  const int type = EVP_PKEY_base_id(key_.get());
  const int length = EVP_PKEY_size(key_.get());
  if ((type != EVP_PKEY_RSA && type != EVP_PKEY_RSA_PSS && type != EVP_PKEY_EC) || length <= 0 ||
      static_cast<std::size_t>(length) > kLongestKeyBytes) {
    throw Unusable("is no RSA, RSA-PSS or EC key that can be used");
  }
  unsigned char *der = nullptr;
  const int derBytes = i2d_PUBKEY(key_.get(), &der);
  if (derBytes <= 0) {
    throw Unusable("has no public half that can be written");
  }
  publicKey_.assign(der, der + derBytes);
  OPENSSL_free(der);
  SHA256(publicKey_.data(), publicKey_.size(), fingerprint_.data());
}

Bytes PrivateKey::sign(const Sign &request) const {
  require(fits(request.scheme, key_.get()), "the key is of another kind than the signature");
  const EVP_MD *const algorithm = algorithmOf(request.digest);
  require(algorithm != nullptr, "a signature needs a digest");
  require(request.form == Form::digest || request.data.size() <= kMaxMessageBytes, "the message is too long");
  const Bytes digest = request.form == Form::message ? digestOf(request.data, algorithm) : request.data;
  require(digest.size() == static_cast<std::size_t>(EVP_MD_size(algorithm)), "the digest has another length");
  const EVPPKeyCtxPtr context = contextOf(key_.get(), EVP_PKEY_sign_init);
  if (request.scheme != Scheme::ecdsa) {
    const int padding = request.scheme == Scheme::pss ? RSA_PKCS1_PSS_PADDING : RSA_PKCS1_PADDING;
    mustDo(EVP_PKEY_CTX_set_rsa_padding(context.get(), padding) == 1);
  }
  mustDo(EVP_PKEY_CTX_set_signature_md(context.get(), algorithm) == 1);
  if (request.scheme == Scheme::pss) {
    setPss(context.get(), request);
  }
  return resultOf(context.get(), EVP_PKEY_sign, digest);
}

Bytes PrivateKey::decrypt(const Decrypt &request) const {
  require(isRsa(key_.get()), "only RSA keys decrypt");
  if (request.padding == Padding::tls) {
    const Bytes block = decryptRaw(request.data);
    require(block.size() >= kPremasterBytes + kPremasterPaddingBytes, "the key is too short");
    std::array<unsigned char, kPremasterBytes> random;
    mustDo(RAND_bytes(random.data(), random.size()) == 1);
    return premasterOf(block, request.clientVersion, request.otherVersion, random);
  }
  const EVPPKeyCtxPtr context = contextOf(key_.get(), EVP_PKEY_decrypt_init);
  const bool oaep = request.padding == Padding::oaep;
  mustDo(EVP_PKEY_CTX_set_rsa_padding(context.get(), oaep ? RSA_PKCS1_OAEP_PADDING : RSA_PKCS1_PADDING) == 1);
  if (oaep) {
    setOaep(context.get(), request);
  }
  return resultOf(context.get(), EVP_PKEY_decrypt, request.data);
}

Bytes PrivateKey::raw(const Raw &request) const {
  require(isRsa(key_.get()), "only RSA keys do that");
  return decryptRaw(request.data);
}

Bytes PrivateKey::decryptRaw(const Bytes &data) const {
  require(data.size() == static_cast<std::size_t>(EVP_PKEY_size(key_.get())), "the data have another length");
  const EVPPKeyCtxPtr context = contextOf(key_.get(), EVP_PKEY_decrypt_init);
  mustDo(EVP_PKEY_CTX_set_rsa_padding(context.get(), RSA_NO_PADDING) == 1);
  return resultOf(context.get(), EVP_PKEY_decrypt, data);
}

} // namespace krHolder
