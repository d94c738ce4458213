// What a private key does for a request.
#include "PrivateKey.h"

#include "Premaster.h"

#include <openssl/err.h>
#include <openssl/rand.h>
#include <openssl/sha.h>

#include <array>

namespace krHolder {

namespace {

constexpr char kFailed[] = "the key's operation failed";
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
    throw Refusal(Status::failed, kFailed);
  }
}

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

// The back end's reasons are not for the client, and what it gives is not believed.
template <class Operate> Bytes resultOf(Operate operate, std::size_t least, std::size_t most) {
  Bytes result;
  try {
    result = operate();
  } catch (const Refusal &) {
    throw;
  } catch (const std::bad_alloc &) {
    throw;
  } catch (const std::exception &reason) {
    throw Refusal(Status::failed, kFailed, reason.what());
  }
  if (result.size() < least || result.size() > most) {
    throw Refusal(Status::failed, kFailed, "the result has " + std::to_string(result.size()) + " bytes");
  }
  return result;
}

std::size_t sizeOf(const HeldKey &key) { return static_cast<std::size_t>(EVP_PKEY_size(key.publicHalf())); }

} // namespace

PrivateKey::PrivateKey(std::unique_ptr<const HeldKey> key) : key_(std::move(key)) {
  EVP_PKEY *const half = key_ ? key_->publicHalf() : nullptr;
  const int type = half != nullptr ? EVP_PKEY_base_id(half) : NID_undef;
  const int length = half != nullptr ? EVP_PKEY_size(half) : 0;
  if ((type != EVP_PKEY_RSA && type != EVP_PKEY_RSA_PSS && type != EVP_PKEY_EC) || length <= 0 ||
      static_cast<std::size_t>(length) > kLongestKeyBytes) {
    throw Unusable("it is no RSA, RSA-PSS or EC key that can be used");
  }
  unsigned char *der = nullptr;
  const int derBytes = i2d_PUBKEY(half, &der);
  if (derBytes <= 0) {
    throw Unusable("it has no public half that can be written");
  }
  publicKey_.assign(der, der + derBytes);
  OPENSSL_free(der);
  SHA256(publicKey_.data(), publicKey_.size(), fingerprint_.data());
}

Bytes PrivateKey::sign(const Sign &request) const {
  require(fits(request.scheme, key_->publicHalf()), "the key is of another kind than the signature");
  const EVP_MD *const algorithm = algorithmOf(request.digest);
  require(algorithm != nullptr, "a signature needs a digest");
  require(request.form == Form::digest || request.data.size() <= kMaxMessageBytes, "the message is too long");
  const bool isPss = request.scheme == Scheme::pss;
  const EVP_MD *const mask = isPss ? algorithmOf(request.maskDigest) : nullptr;
  require(!isPss || mask != nullptr, "PSS needs a mask digest");
  const Bytes digest = request.form == Form::message ? digestOf(request.data, algorithm) : request.data;
  require(digest.size() == static_cast<std::size_t>(EVP_MD_size(algorithm)), "the digest has another length");
  const Signing what{request.scheme, algorithm, mask, isPss ? request.saltBytes : 0, digest};
  const std::size_t size = sizeOf(*key_);
  return resultOf([&] { return key_->sign(what); }, request.scheme == Scheme::ecdsa ? 1 : size, size);
}

Bytes PrivateKey::decrypt(const Decrypt &request) const {
  if (request.padding == Padding::tls) {
    const Bytes block = asked({RSA_NO_PADDING, nullptr, nullptr, {}, request.data});
    require(block.size() >= kPremasterBytes + kPremasterPaddingBytes, "the key is too short");
    std::array<unsigned char, kPremasterBytes> random;
    mustDo(RAND_bytes(random.data(), random.size()) == 1);
    return premasterOf(block, request.clientVersion, request.otherVersion, random);
  }
  if (request.padding == Padding::pkcs1) {
    return asked({RSA_PKCS1_PADDING, nullptr, nullptr, {}, request.data});
  }
  const EVP_MD *const digest = algorithmOf(request.digest);
  const EVP_MD *const mask = algorithmOf(request.maskDigest);
  require(digest != nullptr && mask != nullptr, "OAEP needs a digest and a mask digest");
  return asked({RSA_PKCS1_OAEP_PADDING, digest, mask, request.label, request.data});
}

Bytes PrivateKey::raw(const Raw &request) const { return asked({RSA_NO_PADDING, nullptr, nullptr, {}, request.data}); }

Bytes PrivateKey::asked(const Decrypting &what) const {
  require(EVP_PKEY_base_id(key_->publicHalf()) == EVP_PKEY_RSA, "only RSA keys do that");
  const std::size_t size = sizeOf(*key_);
  require(what.data.size() == size, "the data have another length");
  return resultOf([&] { return key_->decrypt(what); }, what.padding == RSA_NO_PADDING ? size : 0, size);
}

} // namespace krHolder
