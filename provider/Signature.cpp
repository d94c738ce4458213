// What is signed, and how it is asked for.
#include "Signature.h"

#include <openssl/core_names.h>
#include <openssl/rsa.h>

#include <algorithm>

namespace krProvider {

namespace {

constexpr std::size_t kMaxDigestNameBytes = 64;

// How the program wants it signed, as the shadow understood the program.
struct Wishes {
  explicit Wishes(const Shadow &shadow) {
    OSSL_PARAM params[] = {OSSL_PARAM_construct_utf8_string(OSSL_SIGNATURE_PARAM_DIGEST, digest, sizeof digest),
                           OSSL_PARAM_construct_int(OSSL_SIGNATURE_PARAM_PAD_MODE, &padding),
                           OSSL_PARAM_construct_utf8_string(OSSL_SIGNATURE_PARAM_MGF1_DIGEST, mask, sizeof mask),
                           OSSL_PARAM_construct_int(OSSL_SIGNATURE_PARAM_PSS_SALTLEN, &salt),
                           OSSL_PARAM_construct_end()};
    if (shadow.get(params) == 0) {
      throw Raised();
    }
  }

  char digest[kMaxDigestNameBytes] = "";
  char mask[kMaxDigestNameBytes] = "";
  int padding = RSA_PKCS1_PADDING;
  int salt = 0;
};

// ECDSA takes a digest of any kind: its length is all that a program need tell.
const char *nameByLength(std::size_t bytes) noexcept {
  switch (bytes) {
  case 20:
    return "SHA1";
  case 28:
    return "SHA224";
  case 32:
    return "SHA256";
  case 48:
    return "SHA384";
  case 64:
    return "SHA512";
  default:
    return "";
  }
}

// RFC 8017, 9.1.1: what the key leaves for the salt.
std::size_t saltBytes(int rule, std::size_t digestBytes, const EVP_PKEY *key) {
  const auto encodedBytes = (static_cast<std::size_t>(EVP_PKEY_get_bits(key)) + 6) / 8;
  if (encodedBytes < digestBytes + 2) {
    throw Failure(Reason::unsupportedPadding, "the key is too short for PSS with this digest");
  }
  const std::size_t most = encodedBytes - digestBytes - 2;
  switch (rule) {
  case RSA_PSS_SALTLEN_DIGEST:
    return digestBytes;
  case RSA_PSS_SALTLEN_AUTO:
  case RSA_PSS_SALTLEN_MAX:
    return most;
  default:
    return rule < 0 ? std::min(digestBytes, most) : static_cast<std::size_t>(rule);
  }
}

} // namespace

Signature::Signature(const Provider &provider, const char *properties) : provider_(provider) {
  if (properties != nullptr) {
    properties_ = properties;
  }
}

Signature::Signature(const Signature &other)
    : provider_(other.provider_), properties_(other.properties_), key_(other.key_), shadow_(other.shadow_),
      message_(other.message_) {
  if (other.hash_) {
    hash_.reset(EVP_MD_CTX_new());
    done(EVP_MD_CTX_copy_ex(hash_.get(), other.hash_.get()));
  }
}

void Signature::start(Shadow::Start *how, const Share *key, const char *digest, const OSSL_PARAM params[]) {
  shadow_.reset();
  if (key != nullptr) {
    key_ = *key;
  }
  if (!key_) {
    throw Failure(Reason::internal, "no key is set");
  }
  message_.clear();
  hash_.reset();
  shadow_ = key_->begin(how, digest, properties(), params);
}

int Signature::set(const OSSL_PARAM params[]) { return shadow_ ? shadow_->set(params) : 0; }

void Signature::update(krHolder::View data) {
  if (!hash_ && message_.size() + data.size() <= krHolder::kMaxMessageBytes) {
    message_.insert(message_.end(), data.begin(), data.end());
    return;
  }
  if (!hash_) {
    startHash();
  }
  done(EVP_DigestUpdate(hash_.get(), data.data(), data.size()));
}

void Signature::startHash() {
  const DigestPtr digest(EVP_MD_fetch(provider_.library(), Wishes(begun(shadow_)).digest, properties()));
  DigestContextPtr hash(EVP_MD_CTX_new());
  done(EVP_DigestInit_ex2(hash.get(), digest.get(), nullptr));
  done(EVP_DigestUpdate(hash.get(), message_.data(), message_.size()));
  hash_ = std::move(hash);
  message_.clear();
}

krHolder::Bytes Signature::finishHash() {
  if (!hash_) {
    startHash();
  }
  krHolder::Bytes digest(static_cast<std::size_t>(EVP_MD_CTX_get_size(hash_.get())));
  done(EVP_DigestFinal_ex(hash_.get(), digest.data(), nullptr));
  return digest;
}

krHolder::Bytes Signature::signMessage(std::size_t room) {
  return hash_ ? ask(krHolder::Form::digest, finishHash(), room)
               : ask(krHolder::Form::message, std::move(message_), room);
}

krHolder::Bytes Signature::signDigest(krHolder::View digest, std::size_t room) const {
  return ask(krHolder::Form::digest, krHolder::Bytes(digest.begin(), digest.end()), room);
}

krHolder::Bytes Signature::ask(krHolder::Form form, krHolder::Bytes data, std::size_t room) const {
  const Wishes wishes(begun(shadow_));
  const bool byLength = key_->kind() == Kind::ec && form == krHolder::Form::digest && *wishes.digest == '\0';
  const Digest &digest =
      digestNamed(provider_.library(), byLength ? nameByLength(data.size()) : wishes.digest, properties());
  if (form == krHolder::Form::digest && data.size() != digest.bytes) {
    throw Failure(Reason::digestLength);
  }
  krHolder::Sign sign{krHolder::Scheme::pkcs1, digest.code, krHolder::Digest::none, 0, form, std::move(data)};
  if (key_->kind() == Kind::ec) {
    sign.scheme = krHolder::Scheme::ecdsa;
  } else if (wishes.padding == RSA_PKCS1_PSS_PADDING) {
    describePss(sign, digest.bytes, *wishes.mask != '\0' ? wishes.mask : wishes.digest, wishes.salt);
  } else if (wishes.padding != RSA_PKCS1_PADDING) {
    throw Failure(Reason::unsupportedPadding);
  }
  krHolder::Bytes signature = key_->ask(krHolder::Operation::sign, std::move(sign), room);
  if (signature.empty() || (key_->kind() != Kind::ec && signature.size() != key_->maxBytes())) {
    throw Failure(Reason::answer);
  }
  return signature;
}

void Signature::describePss(krHolder::Sign &sign, std::size_t digestBytes, const char *maskDigest, int saltRule) const {
  sign.scheme = krHolder::Scheme::pss;
  sign.maskDigest = digestNamed(provider_.library(), maskDigest, properties()).code;
  sign.saltBytes = static_cast<std::uint16_t>(saltBytes(saltRule, digestBytes, key_->publicKey()));
}

bool Signature::verifyMessage(krHolder::View signature) { return verifyDigest(signature, finishHash()); }

bool Signature::verifyDigest(krHolder::View signature, krHolder::View digest) const noexcept {
  return shadow_ &&
         EVP_PKEY_verify(shadow_->get(), signature.data(), signature.size(), digest.data(), digest.size()) == 1;
}

} // namespace krProvider
