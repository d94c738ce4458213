// How operations on a key begin.
#include "Beginnings.h"

#include <openssl/core_names.h>

#include <optional>
#include <string>

namespace krProvider {

namespace {

std::optional<std::string> copyOf(const char *text) {
  return text != nullptr ? std::optional<std::string>(text) : std::nullopt;
}

bool isSame(const std::optional<std::string> &kept, const char *text) { return text != nullptr ? kept == text : !kept; }

Shadow first(OSSL_LIB_CTX *library, EVP_PKEY *key, Shadow::Start *how, const char *digest, const char *properties) {
  OSSL_PARAM params[] = {OSSL_PARAM_construct_end(), OSSL_PARAM_construct_end()};
  if (digest != nullptr) {
    params[0] = OSSL_PARAM_construct_utf8_string(OSSL_SIGNATURE_PARAM_DIGEST, const_cast<char *>(digest), 0);
  }
  return {library, key, properties, how, params};
}

} // namespace

struct Beginnings::Kept {
  Shadow::Start *how;
  bool isFips;
  std::optional<std::string> digest;
  std::optional<std::string> properties;
  Shadow shadow;
};

Beginnings::~Beginnings() {
  for (const auto &slot : kept_) {
    delete slot.load();
  }
}

Shadow Beginnings::begin(OSSL_LIB_CTX *library, EVP_PKEY *key, Shadow::Start *how, const char *digest,
                         const char *properties) {
  const bool isFips = EVP_default_properties_is_fips_enabled(library) == 1;
  for (auto &slot : kept_) {
    const Kept *kept = slot.load();
    if (kept == nullptr) {
      auto fresh = std::make_unique<Kept>(
          Kept{how, isFips, copyOf(digest), copyOf(properties), first(library, key, how, digest, properties)});
      Shadow own = fresh->shadow;
      if (slot.compare_exchange_strong(kept, fresh.get())) {
        static_cast<void>(fresh.release());
      }
      return own;
    }
    if (kept->how == how && kept->isFips == isFips && isSame(kept->digest, digest) &&
        isSame(kept->properties, properties)) {
      return kept->shadow;
    }
  }
  return first(library, key, how, digest, properties);
}

} // namespace krProvider
