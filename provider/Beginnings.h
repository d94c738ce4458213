// How operations on a key begin: fetching what they need takes longer than most of what comes after.
#pragma once

#include "Shadow.h"

#include <array>
#include <atomic>

namespace krProvider {

/// Keeps the first operation of each kind as it began, with the providers of then; those after it are copies. FIPS as a
/// default property makes a kind of its own; other default properties are those of then. Any number of threads may use
/// one, and a fork leaves nothing of it half done.
class Beginnings {
public:
  Beginnings() = default;
  ~Beginnings();
  Beginnings(const Beginnings &) = delete;
  Beginnings &operator=(const Beginnings &) = delete;

  /// @param digest      null: none is set
  /// @param properties  null for none
  /// @throws Raised, std::bad_alloc
  Shadow begin(OSSL_LIB_CTX *library, EVP_PKEY *key, Shadow::Start *how, const char *digest, const char *properties);

private:
  struct Kept;

  std::array<std::atomic<const Kept *>, 8> kept_{}; // from the front
};

} // namespace krProvider
