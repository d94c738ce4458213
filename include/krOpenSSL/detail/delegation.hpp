/// @file
/// How krDelegate.hpp does it. Nothing here is for callers.
#pragma once

#include <krOpenSSL/krDelegate.hpp>

#include <openssl/err.h>
#include <openssl/objects.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <mutex>
#include <string_view>
#include <utility>

namespace krOpenSSL {

constexpr int hashOfLength(std::size_t digestBytes) noexcept {
  constexpr std::array<std::pair<std::size_t, int>, 6> kHashes{
      {{20, NID_sha1}, {28, NID_sha224}, {32, NID_sha256}, {36, NID_md5_sha1}, {48, NID_sha384}, {64, NID_sha512}}};
  for (const auto &[bytes, hash] : kHashes) {
    if (bytes == digestBytes) {
      return hash;
    }
  }
  return NID_undef;
}

namespace detail {

inline std::mutex &setUpMutex() {
  static std::mutex only;
  return only;
}

inline void require(bool condition, const char *failure) {
  if (!condition) {
    throw DelegateError(failure);
  }
}

template <class Handle> Handle required(Handle handle) {
  require(handle != nullptr, "out of memory");
  return handle;
}

inline BIGNUMPtr copyOf(const BIGNUM *number, const char *missing = "the key has no public half") {
  require(number != nullptr, missing);
  return required(BIGNUMPtr(BN_dup(number)));
}

inline RSAPtr publicHalf(const RSA *key) {
  RSAPtr half = required(RSAPtr(RSA_new()));
  const auto setKey = [&](BIGNUM *n, BIGNUM *e) { return RSA_set0_key(half.get(), n, e, nullptr); };
  require(handOver(setKey, copyOf(RSA_get0_n(key)), copyOf(RSA_get0_e(key))) == 1, "the RSA key cannot be used");
  return half;
}

inline DSAPtr publicHalf(const DSA *key) {
  DSAPtr half = required(DSAPtr(DSA_new()));
  const auto setGroup = [&](BIGNUM *p, BIGNUM *q, BIGNUM *g) { return DSA_set0_pqg(half.get(), p, q, g); };
  const auto setKey = [&](BIGNUM *y) { return DSA_set0_key(half.get(), y, nullptr); };
  require(handOver(setGroup, copyOf(DSA_get0_p(key)), copyOf(DSA_get0_q(key)), copyOf(DSA_get0_g(key))) == 1 &&
              handOver(setKey, copyOf(DSA_get0_pub_key(key))) == 1,
          "the DSA key cannot be used");
  return half;
}

inline ECKeyPtr publicHalf(const EC_KEY *key) {
  ECKeyPtr half = required(ECKeyPtr(EC_KEY_new()));
  const EC_GROUP *group = EC_KEY_get0_group(key);
  const EC_POINT *point = EC_KEY_get0_public_key(key);
  require(group != nullptr && point != nullptr && EC_KEY_set_group(half.get(), group) == 1 &&
              EC_KEY_set_public_key(half.get(), point) == 1,
          "the EC key cannot be used");
  return half;
}

inline constexpr const char *kNoPrivateHalf = "the key has no private half";

/// With its primes when there are two, as there are but in rare keys: a key computes without them, too.
inline RSAPtr wholeKey(const RSA *key) {
  RSAPtr copy = publicHalf(key);
  const auto setKey = [&](BIGNUM *d) { return RSA_set0_key(copy.get(), nullptr, nullptr, d); };
  require(handOver(setKey, copyOf(RSA_get0_d(key), kNoPrivateHalf)) == 1, "the RSA key cannot be used");
  if (RSA_get0_iqmp(key) != nullptr && RSA_get_multi_prime_extra_count(key) == 0) {
    const auto setPrimes = [&](BIGNUM *p, BIGNUM *q) { return RSA_set0_factors(copy.get(), p, q); };
    const auto setOthers = [&](BIGNUM *p, BIGNUM *q, BIGNUM *i) { return RSA_set0_crt_params(copy.get(), p, q, i); };
    require(handOver(setPrimes, copyOf(RSA_get0_p(key)), copyOf(RSA_get0_q(key))) == 1 &&
                handOver(setOthers, copyOf(RSA_get0_dmp1(key)), copyOf(RSA_get0_dmq1(key)),
                         copyOf(RSA_get0_iqmp(key))) == 1,
            "the RSA key cannot be used");
  }
  return copy;
}

inline DSAPtr wholeKey(const DSA *key) {
  DSAPtr copy = publicHalf(key);
  const auto setKey = [&](BIGNUM *x) { return DSA_set0_key(copy.get(), nullptr, x); };
  require(handOver(setKey, copyOf(DSA_get0_priv_key(key), kNoPrivateHalf)) == 1, "the DSA key cannot be used");
  return copy;
}

inline ECKeyPtr wholeKey(const EC_KEY *key) {
  ECKeyPtr copy = publicHalf(key);
  const BIGNUM *number = EC_KEY_get0_private_key(key);
  require(number != nullptr, kNoPrivateHalf);
  require(EC_KEY_set_private_key(copy.get(), number) == 1, "the EC key cannot be used");
  return copy;
}

/// A key over the copy that @p copy makes of the object of @p key.
template <class Copy> EVPPKeyPtr keyOver(EVP_PKEY *key, Copy copy) {
  require(key != nullptr, "a key is missing");
  EVPPKeyPtr made = required(EVPPKeyPtr(EVP_PKEY_new()));
  int done = 0;
  switch (EVP_PKEY_base_id(key)) {
  case EVP_PKEY_RSA:
    done = EVP_PKEY_set1_RSA(made.get(), copy(required(keyObject::rsaOf(key))).get());
    break;
  case EVP_PKEY_DSA:
    done = EVP_PKEY_set1_DSA(made.get(), copy(required(keyObject::dsaOf(key))).get());
    break;
  case EVP_PKEY_EC:
    done = EVP_PKEY_set1_EC_KEY(made.get(), copy(required(keyObject::ecKeyOf(key))).get());
    break;
  default:
    throw DelegateError("only RSA, DSA and EC keys can be delegated");
  }
  require(done == 1, "the key cannot be used");
  return made;
}

/// Whether the engine hands signatures to the provider: the library's own one, and in FIPS mode wolfEngine.
inline bool delegates(const ENGINE *engine, bool alsoWolfEngine) {
  const std::string_view id = engine != nullptr ? ENGINE_get_id(engine) : "";
  return id == "qvlib" || (alsoWolfEngine && id == "wolfEngine");
}

/// Stores the connection on a key object; false when no engine would look for it there, or without memory.
inline bool nameConnection(EVP_PKEY *key, SSL *ssl) {
  switch (EVP_PKEY_base_id(key)) {
  case EVP_PKEY_RSA: {
    RSA *rsa = keyObject::rsaOf(key);
    return delegates(RSA_get0_engine(rsa), true) && RSA_set_ex_data(rsa, kropenssl_get_rsa_idx(), ssl) == 1;
  }
  case EVP_PKEY_DSA: {
    DSA *dsa = keyObject::dsaOf(key);
    return delegates(DSA_get0_engine(dsa), false) && DSA_set_ex_data(dsa, kropenssl_get_dsa_idx(), ssl) == 1;
  }
  default: {
    EC_KEY *ec = keyObject::ecKeyOf(key);
    return delegates(EC_KEY_get0_engine(ec), true) && EC_KEY_set_ex_data(ec, kropenssl_get_ecdsa_idx(), ssl) == 1;
  }
  }
}

/// OpenSSL's error queue during one signer's call. The signer gets an empty one: its marks, its ERR_clear_error, and
/// more entries than the queue holds, must not reach those of before.
class SignerErrors {
public:
  SignerErrors() noexcept : queued_(ERR_get_state() != nullptr) { exchange(); }
  ~SignerErrors() {
    if (!succeeded_) {
      exchange();
      addOthers();
      exchange();
    }
    if (queued_) {
      ERR_clear_error();
      exchange();
    }
  }
  SignerErrors(const SignerErrors &) = delete;
  SignerErrors &operator=(const SignerErrors &) = delete;

  /// The signer's entries are to be dropped.
  void succeeded() noexcept { succeeded_ = true; }

private:
  void exchange() noexcept {
    if (ERR_STATE *queue = queued_ ? ERR_get_state() : nullptr; queue != nullptr) {
      std::swap(*queue, other_);
    }
  }

  void addOthers() const noexcept {
    for (int i = other_.bottom; i != other_.top;) {
      i = (i + 1) % ERR_NUM_ERRORS;
      const unsigned long code = other_.err_buffer[i];
      ERR_put_error(ERR_GET_LIB(code), ERR_GET_FUNC(code), ERR_GET_REASON(code), other_.err_file[i],
                    other_.err_line[i]);
      if ((other_.err_data_flags[i] & ERR_TXT_STRING) != 0) {
        ERR_add_error_data(1, other_.err_data[i]);
      }
    }
  }

  bool queued_; // the thread has a queue: there was memory for it
  bool succeeded_ = false;
  ERR_STATE other_{};
};

/// What a provider is asked for with keys of each type, and the limits within which it is.
struct Algorithm {
  int keyType;
  int operation; ///< as the provider is told
  int highestVersion;
  const char *ciphers; ///< of TLS 1.2
  const char *signatureAlgorithms;
};
inline constexpr std::array<Algorithm, 3> kAlgorithms{
    {{EVP_PKEY_RSA, NID_md5_sha1, TLS1_2_VERSION, "ECDHE+aRSA+AESGCM:DHE+aRSA+AESGCM",
      "RSA+SHA256:RSA+SHA384:RSA+SHA512"},
     {EVP_PKEY_DSA, NID_dsa, TLS1_2_VERSION, "DHE+DSS+AESGCM", "DSA+SHA256"},
     {EVP_PKEY_EC, NID_ecdsa_with_Recommended, TLS1_3_VERSION, "ECDHE+ECDSA+AESGCM",
      "ECDSA+SHA256:ECDSA+SHA384:ECDSA+SHA512"}}};

/// The place of the algorithm in the table; its size when there is none.
inline std::size_t placeOf(int Algorithm::*field, int value) {
  return static_cast<std::size_t>(std::ranges::find(kAlgorithms, value, field) - kAlgorithms.begin());
}

/// What the connections of a delegated key share.
struct SharedKey {
  EVPPKeyPtr publicHalf;
  Signer signer;

  std::size_t algorithm() const { return placeOf(&Algorithm::keyType, EVP_PKEY_base_id(publicHalf.get())); }
};

/// The ift_provider record of one SSL_CTX, owned by that context, and the keys that sign for it.
class ContextRecord {
public:
  /// Has the key sign for the connections of the context, unless @p prepare throws: makes the context's record where it
  /// has none.
  template <class Prepare>
  static void serve(SSL_CTX *context, const std::shared_ptr<const SharedKey> &key, Prepare prepare) {
    static std::mutex mutex;
    const std::scoped_lock lock(mutex);
    ContextRecord &record = of(context);
    std::shared_ptr<const SharedKey> &slot = record.keys_.at(key->algorithm());
    require(slot == nullptr || slot == key, "another key of this type signs for the context");
    prepare();
    if (slot == nullptr) {
      slot = key;
    }
  }

private:
  static ContextRecord &of(SSL_CTX *context) {
    const void *served = SSL_CTX_get_ex_data(context, kropenssl_get_ssl_ctx_idx());
    auto *record = static_cast<ContextRecord *>(SSL_CTX_get_ex_data(context, index()));
    if (record != nullptr && served == &record->record_) {
      return *record;
    }
    require(served == nullptr, "the context carries another provider's record");
    if (record == nullptr) {
      auto made = std::make_unique<ContextRecord>();
      require(SSL_CTX_set_ex_data(context, index(), made.get()) == 1, "out of memory");
      record = made.release(); // the context's from here on
    }
    require(SSL_CTX_set_ex_data(context, kropenssl_get_ssl_ctx_idx(), &record->record_) == 1, "out of memory");
    return *record;
  }

  /// Where a context keeps its record, to free it with itself.
  static int index() {
    static const int made = [] {
      const int fresh = SSL_CTX_get_ex_new_index(0, nullptr, nullptr, nullptr, destroy);
      require(fresh >= 0, "out of memory");
      return fresh;
    }();
    return made;
  }

  static void destroy(void * /*context*/, void *record, CRYPTO_EX_DATA * /*data*/, int /*index*/, long /*number*/,
                      void * /*pointer*/) {
    delete static_cast<ContextRecord *>(record);
  }

  static bool sign(void *arg, int type, int keySize, const unsigned char *data, int dataLength, unsigned char *out,
                   int capacity, std::int32_t *outLength) noexcept {
    try {
      const SharedKey *key = static_cast<ContextRecord *>(arg)->keys_.at(placeOf(&Algorithm::operation, type)).get();
      if (key == nullptr) {
        return false;
      }
      const auto length = static_cast<std::size_t>(dataLength);
      // OpenSSL has no room for more than the size of the key, whatever the capacity.
      const auto room = static_cast<std::size_t>(std::min(keySize, capacity));
      SignerErrors errors;
      const std::size_t written = key->signer({{data, length}, hashOfLength(length)}, {out, room});
      if (written == 0 || written > room) {
        return false;
      }
      errors.succeeded();
      *outLength = static_cast<std::int32_t>(written);
      return true;
    } catch (...) {
      return false;
    }
  }

  ift_provider record_{nullptr, sign, this};
  // A slot is filled before the first key object of its type is bound, and never changes after that.
  std::array<std::shared_ptr<const SharedKey>, kAlgorithms.size()> keys_;
};

} // namespace detail

inline Library::Library() {
  const std::scoped_lock lock(detail::setUpMutex());
  if (krOSSLSetup() != 0) {
    krOSSLCleanup();
    throw DelegateError("OpenSSL could not be initialised");
  }
}

inline Library::~Library() {
  const std::scoped_lock lock(detail::setUpMutex());
  krOSSLCleanup();
}

inline EVPPKeyPtr publicHalf(EVP_PKEY *key) {
  return detail::keyOver(key, [](const auto *object) { return detail::publicHalf(object); });
}

inline EVPPKeyPtr engineKey(EVP_PKEY *key) {
  return detail::keyOver(key, [](const auto *object) { return detail::wholeKey(object); });
}

inline DelegatedKey::DelegatedKey([[maybe_unused]] const Library &library, EVP_PKEY *publicKey, Signer signer) {
  detail::require(static_cast<bool>(signer), "a signer is missing");
  shared_ = std::make_shared<const detail::SharedKey>(detail::SharedKey{publicHalf(publicKey), std::move(signer)});
}

inline void DelegatedKey::prepare(SSL_CTX *context) const {
  detail::require(context != nullptr, "a context is missing");
  const detail::Algorithm &limits = detail::kAlgorithms.at(shared_->algorithm());
  detail::ContextRecord::serve(context, shared_, [&] {
    const auto highest = SSL_CTX_get_max_proto_version(context); // 0 is the highest there is
    const bool lowered = highest != 0 && highest <= limits.highestVersion;
    detail::require(SSL_CTX_set1_sigalgs_list(context, limits.signatureAlgorithms) == 1 &&
                        SSL_CTX_set_cipher_list(context, limits.ciphers) == 1 &&
                        (lowered || SSL_CTX_set_max_proto_version(context, limits.highestVersion) == 1),
                    "the context cannot be limited");
  });
}

inline void DelegatedKey::bindTo(SSL *ssl) const {
  detail::require(ssl != nullptr, "a connection is missing");
  const EVPPKeyPtr key = publicHalf(shared_->publicHalf.get());
  detail::require(detail::nameConnection(key.get(), ssl), "no engine that delegates serves this key");
  detail::ContextRecord::serve(SSL_get_SSL_CTX(ssl), shared_, [&] {
    detail::require(SSL_use_PrivateKey(ssl, key.get()) == 1, "the connection refuses the key");
  });
}

} // namespace krOpenSSL
