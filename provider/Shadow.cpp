// The public side of an operation, and the digests.
#include "Shadow.h"

#include "Reasons.h"

#include <strings.h>

namespace krProvider {

Shadow::Shadow(OSSL_LIB_CTX *library, EVP_PKEY *key, const char *properties, Start *start, const OSSL_PARAM params[])
    : context_(EVP_PKEY_CTX_new_from_pkey(library, key, properties)) {
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

const Shadow &begun(const std::optional<Shadow> &shadow) {
  if (!shadow) {
    throw Failure(Reason::internal, "no operation has begun");
  }
  return *shadow;
}

const Digest &digestNamed(OSSL_LIB_CTX *library, const char *name, const char *properties) {
  static constexpr Digest kDigests[] = {
      {"SHA256", krHolder::Digest::sha256, 32},    {"SHA384", krHolder::Digest::sha384, 48},
      {"SHA512", krHolder::Digest::sha512, 64},    {"SHA1", krHolder::Digest::sha1, 20},
      {"MD5-SHA1", krHolder::Digest::md5Sha1, 36}, {"SHA224", krHolder::Digest::sha224, 28},
  };
  for (const Digest &known : kDigests) {
    if (strcasecmp(name, known.name) == 0) {
      return known;
    }
  }
  // By another of its names: the providers know them all.
  const DigestPtr digest(*name != '\0' ? EVP_MD_fetch(library, name, properties) : nullptr);
  for (const Digest &known : kDigests) {
    if (EVP_MD_is_a(digest.get(), known.name) == 1) {
      return known;
    }
  }
  throw Failure(Reason::unsupportedDigest, *name != '\0' ? name : "none is set");
}

} // namespace krProvider
