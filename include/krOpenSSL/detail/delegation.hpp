/// @file
/// How krDelegate.hpp does it. Nothing here is for callers.
#pragma once

#include <krOpenSSL/detail/limits.hpp>
#include <krOpenSSL/detail/pss.hpp>
#include <krOpenSSL/krDelegate.hpp>

#include <openssl/err.h>
#include <openssl/objects.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <mutex>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

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

static_assert(PssRequest::kUnknownSalt == kUnknownSaltLength);

inline PssRequest pssRequest(std::span<const unsigned char> block, int keyBits) {
  const PssPadding padding = pssPadding(block, keyBits);
  return {block, padding.hash, padding.hash, padding.saltLength};
}

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
/// @param whole  an RSA key's provider is to be asked for all operations
inline bool nameConnection(EVP_PKEY *key, SSL *ssl, bool whole) {
  switch (EVP_PKEY_base_id(key)) {
  case EVP_PKEY_RSA: {
    RSA *rsa = keyObject::rsaOf(key);
    RSA_set_flags(rsa, whole ? KR_RSA_WHOLE_KEY : 0);
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
      releaseTexts();
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

  // A queue of OpenSSL 3 keeps them beyond its clearing.
  void releaseTexts() noexcept {
    for (int i = 0; i < ERR_NUM_ERRORS; ++i) {
      if ((other_.err_data_flags[i] & ERR_TXT_MALLOCED) != 0) {
        OPENSSL_free(other_.err_data[i]);
      }
    }
  }

  bool queued_; // the thread has a queue: there was memory for it
  bool succeeded_ = false;
  ERR_STATE other_{};
};

/// The types of keys, each of which has one place in a context.
inline constexpr std::array kKeyTypes{EVP_PKEY_RSA, EVP_PKEY_DSA, EVP_PKEY_EC};

/// The place of the keys that a provider is asked to use: all types of operation but two are RSA's.
inline std::size_t placeOf(int operation) {
  const int keyType = operation == NID_dsa                      ? EVP_PKEY_DSA
                      : operation == NID_ecdsa_with_Recommended ? EVP_PKEY_EC
                                                                : EVP_PKEY_RSA;
  return static_cast<std::size_t>(std::ranges::find(kKeyTypes, keyType) - kKeyTypes.begin());
}

/// What the connections of a delegated key share.
struct SharedKey {
  EVPPKeyPtr publicHalf;
  KeyOperations operations;

  int type() const { return EVP_PKEY_base_id(publicHalf.get()); }
  std::size_t place() const {
    return static_cast<std::size_t>(std::ranges::find(kKeyTypes, type()) - kKeyTypes.begin());
  }
  bool isWhole() const { return operations.signPss || operations.decrypt; }
  Abilities abilities() const {
    return {type(), static_cast<bool>(operations.sign), static_cast<bool>(operations.signPss),
            static_cast<bool>(operations.decrypt)};
  }

  /// Carries out an operation of the type that the provider is told.
  /// @return bytes written, or 0
  std::size_t perform(int operation, std::span<const unsigned char> in, std::span<unsigned char> out) const {
    switch (operation) {
    case NID_rsassaPss:
      return ask(operations.signPss, pssRequest(in, EVP_PKEY_bits(publicHalf.get())), out);
    case NID_rsaEncryption:
      return ask(operations.decrypt, {in, RSA_PKCS1_PADDING}, out);
    case NID_rsaesOaep:
      return ask(operations.decrypt, {in, RSA_PKCS1_OAEP_PADDING}, out);
    case NID_rsa:
      return ask(operations.decrypt, {in, RSA_NO_PADDING}, out);
    default:
      return ask(operations.sign, {in, hashOfLength(in.size())}, out);
    }
  }

private:
  template <class Request>
  static std::size_t ask(const std::function<std::size_t(const Request &, std::span<unsigned char>)> &function,
                         const std::type_identity_t<Request> &request, std::span<unsigned char> out) {
    return function ? function(request, out) : 0;
  }
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
    std::shared_ptr<const SharedKey> &slot = record.keys_.at(key->place());
    require(slot == nullptr || slot == key, "another key of this type signs for the context");
    prepare(record);
    if (slot == nullptr) {
      slot = key;
    }
  }

  /// Has the context's connections do only what the key can.
  void limit(SSL_CTX *context, const Abilities &key) {
    if (const auto before = SSL_CTX_get_security_callback(context); before != permit) {
      before_ = before;
      SSL_CTX_set_security_callback(context, permit);
    }
    if (std::ranges::find(limits_, key.keyType, &Abilities::keyType) == limits_.end()) {
      limits_.push_back(key);
    }
  }

private:
  /// OpenSSL's question whether a connection may do something.
  static int permit(const SSL *ssl, const SSL_CTX *context, int operation, int bits, int nid, void *other, void *ex) {
    const SSL_CTX *of = ssl != nullptr ? SSL_get_SSL_CTX(ssl) : context;
    const auto *record = static_cast<const ContextRecord *>(SSL_CTX_get_ex_data(of, index()));
    const bool permitted = record != nullptr && std::ranges::all_of(record->limits_, [&](const Abilities &key) {
                             return operation == SSL_SECOP_SIGALG_SHARED ? key.permitScheme(schemeOf(other))
                                    : operation == SSL_SECOP_CIPHER_SHARED
                                        ? key.permitSuite(static_cast<const SSL_CIPHER *>(other))
                                        : true;
                           });
    return permitted ? record->before_(ssl, context, operation, bits, nid, other, ex) : 0;
  }

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

  static bool perform(void *arg, int type, int keySize, const unsigned char *data, int dataLength, unsigned char *out,
                      int capacity, std::int32_t *outLength) noexcept {
    try {
      const SharedKey *key = static_cast<ContextRecord *>(arg)->keys_.at(placeOf(type)).get();
      if (key == nullptr) {
        return false;
      }
      const auto length = static_cast<std::size_t>(dataLength);
      // OpenSSL has no room for more than the size of the key, whatever the capacity.
      const auto room = static_cast<std::size_t>(std::min(keySize, capacity));
      SignerErrors errors;
      const std::size_t written = key->perform(type, {data, length}, {out, room});
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

  ift_provider record_{nullptr, perform, this};
  // A slot is filled before the first key object of its type is bound, and never changes after that.
  std::array<std::shared_ptr<const SharedKey>, kKeyTypes.size()> keys_;
  // What the context was readied for, before it had connections.
  std::vector<Abilities> limits_;
  int (*before_)(const SSL *, const SSL_CTX *, int, int, int, void *, void *) = nullptr;
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

inline DelegatedKey::DelegatedKey(const Library &library, EVP_PKEY *publicKey, Signer signer)
    : DelegatedKey(library, publicKey, KeyOperations{std::move(signer), nullptr, nullptr}) {}

inline DelegatedKey::DelegatedKey([[maybe_unused]] const Library &library, EVP_PKEY *publicKey,
                                  KeyOperations operations) {
  EVPPKeyPtr half = publicHalf(publicKey);
  const bool isRsa = EVP_PKEY_base_id(half.get()) == EVP_PKEY_RSA;
  detail::require(operations.sign || (isRsa && operations.signPss), "a signer is missing");
  detail::require(isRsa || (!operations.signPss && !operations.decrypt), "only RSA keys have padding");
  shared_ = std::make_shared<const detail::SharedKey>(detail::SharedKey{std::move(half), std::move(operations)});
}

inline void DelegatedKey::prepare(SSL_CTX *context) const {
  detail::require(context != nullptr, "a context is missing");
  detail::ContextRecord::serve(context, shared_, [&](detail::ContextRecord &record) {
    const detail::Abilities key = shared_->abilities();
    const auto allowed = static_cast<int>(SSL_CTX_get_max_proto_version(context)); // 0 is the highest there is
    const auto lowest = static_cast<int>(SSL_CTX_get_min_proto_version(context));  // 0 is the lowest
    const int highest = allowed == 0 ? key.highestVersion() : std::min(allowed, key.highestVersion());
    detail::require(lowest <= highest, "no version of TLS is left for the key");
    detail::Prospect prospect(context, highest);
    detail::require(prospect.isThere(), "the context makes no connections");
    detail::require(prospect.hasSuite(key), "no cipher suite is left for the key");
    detail::require(prospect.hasScheme(key, lowest, highest), "no signature algorithm is left for the key");
    detail::require(SSL_CTX_set_max_proto_version(context, highest) == 1, "the context cannot be limited");
    record.limit(context, key);
  });
}

inline void DelegatedKey::bindTo(SSL *ssl) const {
  detail::require(ssl != nullptr, "a connection is missing");
  const EVPPKeyPtr key = publicHalf(shared_->publicHalf.get());
  detail::require(detail::nameConnection(key.get(), ssl, shared_->isWhole()),
                  "no engine that delegates serves this key");
  detail::ContextRecord::serve(SSL_get_SSL_CTX(ssl), shared_, [&](const detail::ContextRecord & /*record*/) {
    detail::require(SSL_use_PrivateKey(ssl, key.get()) == 1, "the connection refuses the key");
  });
}

} // namespace krOpenSSL
