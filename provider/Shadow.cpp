// The public side of an operation, and the digests.
#include "Shadow.h"

namespace krProvider {

Shadow::Shadow(const Key &key, const char *properties, Start *start, const OSSL_PARAM params[])
    : context_(EVP_PKEY_CTX_new_from_pkey(key.provider().library(), key.publicKey(), properties)) {
  if (!context_) {
    throw Raised();
  }
  done(start(context_.get(), params));
}

Shadow::Shadow(const Shadow &other) : context_(EVP_PKEY_CTX_dup(other.get())) {
  if (!context_) {
    throw Raised();
  }
}

NamedDigest digestNamed(const Key &key, const char *name, const char *properties) {
  static constexpr struct {
    const char *name;
    krHolder::Digest code;
  } kDigests[] = {
      {"SHA256", krHolder::Digest::sha256},    {"SHA384", krHolder::Digest::sha384},
      {"SHA512", krHolder::Digest::sha512},    {"SHA1", krHolder::Digest::sha1},
      {"MD5-SHA1", krHolder::Digest::md5Sha1}, {"SHA224", krHolder::Digest::sha224},
  };
  DigestPtr digest(*name != '\0' ? EVP_MD_fetch(key.provider().library(), name, properties) : nullptr);
  for (const auto &known : kDigests) {
    if (EVP_MD_is_a(digest.get(), known.name) == 1) {
      const auto bytes = static_cast<std::size_t>(EVP_MD_get_size(digest.get()));
      return {known.code, bytes, std::move(digest)};
    }
  }
  throw Failure(Reason::unsupportedDigest, *name != '\0' ? name : "none is set");
}

} // namespace krProvider
