// The key of a reference.
#include "Key.h"

#include <openssl/x509.h>

#include <algorithm>

namespace krProvider {

namespace {

KeyPtr readPublicKey(OSSL_LIB_CTX *library, krHolder::View der) {
  const unsigned char *at = der.data();
  KeyPtr key(d2i_PUBKEY_ex(nullptr, &at, static_cast<long>(der.size()), library, nullptr));
  if (!key || at != der.data() + der.size()) {
    throw Failure(Reason::reference, "its public key is damaged");
  }
  return key;
}

Kind kindOf(const EVP_PKEY *key) {
  for (const Kind kind : {Kind::rsa, Kind::rsaPss, Kind::ec}) {
    if (EVP_PKEY_is_a(key, nameOf(kind)) == 1) {
      return kind;
    }
  }
  throw Failure(Reason::unsupportedKey);
}

krHolder::Fingerprint fingerprintOf(OSSL_LIB_CTX *library, krHolder::View der) {
  krHolder::Fingerprint fingerprint;
  std::size_t length = 0;
  done(EVP_Q_digest(library, "SHA256", nullptr, der.data(), der.size(), fingerprint.data(), &length));
  return fingerprint;
}

// It goes into logs: nothing but what people read.
std::string printable(krHolder::View text) {
  std::string shown(text.begin(), text.end());
  std::ranges::replace_if(
      shown, [](char c) { return c < ' ' || c > '~'; }, '?');
  return shown;
}

} // namespace

const char *nameOf(Kind kind) noexcept {
  switch (kind) {
  case Kind::rsa:
    return "RSA";
  case Kind::rsaPss:
    return "RSA-PSS";
  default:
    return "EC";
  }
}

Key::Key(Provider &provider, const krHolder::Reference &reference)
    : provider_(provider), client_(provider.client(reference.socket)), name_(reference.name),
      fingerprint_(fingerprintOf(provider.library(), reference.publicKey)),
      publicKey_(readPublicKey(provider.library(), reference.publicKey)), kind_(kindOf(publicKey_.get())),
      maxBytes_(static_cast<std::size_t>(std::max(EVP_PKEY_get_size(publicKey_.get()), 0))) {}

Shadow Key::begin(Shadow::Start *how, const char *digest, const char *properties, const OSSL_PARAM params[]) const {
  Shadow fresh = beginnings_.begin(provider_.library(), publicKey_.get(), how, digest, properties);
  if (params != nullptr) {
    done(fresh.set(params));
  }
  return fresh;
}

krHolder::Bytes Key::ask(krHolder::Operation operation, decltype(krHolder::Request::body) body,
                         std::size_t room) const {
  krHolder::Answer answer = client_->ask({operation, 0, 0, fingerprint_, name_, std::move(body)});
  if (answer.status != krHolder::Status::ok) {
    throw Failure(reasonOf(answer.status), printable(answer.data));
  }
  if (answer.data.size() > maxBytes_) {
    throw Failure(Reason::answer);
  }
  if (answer.data.size() > room) {
    throw Failure(Reason::smallBuffer);
  }
  return std::move(answer.data);
}

} // namespace krProvider
