/// @file
/// Delegation for C++ callers: the library and a delegated key as objects that keep the rules of krLifecycle.h and
/// krDelegation.h by themselves. Header only, over the exports and OpenSSL; it adds no symbol to the library.
///
///     const krOpenSSL::Library library;
///     const krOpenSSL::DelegatedKey key(library, X509_get0_pubkey(certificate), signInMyKeyStore);
///     key.prepare(context); // once for each SSL_CTX, whose certificate is set
///     ...
///     key.bindTo(ssl);      // for each connection, before its handshake
///
/// What goes through a delegated key, and what is refused, is what krDelegation.h says of the provider: no RSA-PSS, so
/// no TLS 1.3 with RSA, and no DSA or ECDSA over 28 bytes. The code that includes this header registers functions with
/// OpenSSL: it has to stay loaded.
#pragma once

#include <krOpenSSL/krDelegation.h>
#include <krOpenSSL/krHandles.h>
#include <krOpenSSL/krLifecycle.h>

#include <openssl/objects.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <span>
#include <stdexcept>
#include <string_view>
#include <utility>

namespace krOpenSSL {

/// What this header throws where OpenSSL or the library refuses; OpenSSL's own reason, where it has one, stays on the
/// calling thread's error queue.
class DelegateError : public std::runtime_error {
public:
  using std::runtime_error::runtime_error;
};

/// The library, set up for the life of the object. Objects are counted: any number may live at once.
///
/// @note Safe from any thread: an object is not made before the first one's set-up is done. The last one's end is to be
///       kept apart from other use of the library, and so are direct calls of krOSSLSetup and krOSSLCleanup from
///       objects that begin or end.
class Library {
public:
  /// @throws DelegateError when OpenSSL could not be initialised
  Library() {
    const std::scoped_lock lock(mutex());
    if (krOSSLSetup() != 0) {
      krOSSLCleanup();
      throw DelegateError("OpenSSL could not be initialised");
    }
  }
  ~Library() {
    const std::scoped_lock lock(mutex());
    krOSSLCleanup();
  }
  Library(const Library &) = delete;
  Library &operator=(const Library &) = delete;

private:
  static std::mutex &mutex() {
    static std::mutex only;
    return only;
  }
};

/// The hash whose digests have this length: NID_sha1, NID_sha224, NID_sha256, NID_md5_sha1 (36 bytes, which RSA signs
/// without a DigestInfo), NID_sha384 or NID_sha512; NID_undef for other lengths.
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

/// What a signer is asked for.
struct SignRequest {
  std::span<const unsigned char> digest; ///< the bare digest, there during the call only
  int hash;                              ///< hashOfLength of it
};

/// Signs with the private key, wherever that is, into @p out: PKCS#1 v1.5 for RSA, whose @p out has the size of the
/// key; a DER-encoded signature for DSA and EC.
///
/// @return bytes written; 0, more than @p out has, or an exception makes the handshake fail
/// @note Called on the threads of the handshakes, several at once, without any lock held. It must not end or cancel its
///       thread, and must not own the SSL_CTX, which owns it.
using Signer = std::function<std::size_t(const SignRequest &request, std::span<unsigned char> out)>;

namespace detail {

inline void require(bool condition, const char *failure) {
  if (!condition) {
    throw DelegateError(failure);
  }
}

template <class Handle> Handle required(Handle handle) {
  require(handle != nullptr, "out of memory");
  return handle;
}

inline BIGNUMPtr copyOf(const BIGNUM *number) {
  require(number != nullptr, "the key has no public half");
  return required(BIGNUMPtr(BN_dup(number)));
}

inline RSAPtr publicHalf(const RSA *key) {
  RSAPtr half = required(RSAPtr(RSA_new()));
  BIGNUMPtr modulus = copyOf(RSA_get0_n(key));
  BIGNUMPtr exponent = copyOf(RSA_get0_e(key));
  require(RSA_set0_key(half.get(), modulus.get(), exponent.get(), nullptr) == 1, "the RSA key cannot be used");
  static_cast<void>(modulus.release());
  static_cast<void>(exponent.release());
  return half;
}

inline DSAPtr publicHalf(const DSA *key) {
  DSAPtr half = required(DSAPtr(DSA_new()));
  BIGNUMPtr p = copyOf(DSA_get0_p(key));
  BIGNUMPtr q = copyOf(DSA_get0_q(key));
  BIGNUMPtr g = copyOf(DSA_get0_g(key));
  BIGNUMPtr y = copyOf(DSA_get0_pub_key(key));
  require(DSA_set0_pqg(half.get(), p.get(), q.get(), g.get()) == 1, "the DSA key cannot be used");
  static_cast<void>(p.release());
  static_cast<void>(q.release());
  static_cast<void>(g.release());
  require(DSA_set0_key(half.get(), y.get(), nullptr) == 1, "the DSA key cannot be used");
  static_cast<void>(y.release());
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

/// Whether the engine hands signatures to the provider: the library's own one, and in FIPS mode wolfEngine.
inline bool delegates(const ENGINE *engine, bool alsoWolfEngine) {
  const std::string_view id = engine != nullptr ? ENGINE_get_id(engine) : "";
  return id == "qvlib" || (alsoWolfEngine && id == "wolfEngine");
}

/// Stores the connection on a key object; false when no engine would look for it there, or without memory.
inline bool nameConnection(EVP_PKEY *key, SSL *ssl) {
  switch (EVP_PKEY_base_id(key)) {
  case EVP_PKEY_RSA: {
    RSA *rsa = EVP_PKEY_get0_RSA(key);
    return delegates(RSA_get0_engine(rsa), true) && RSA_set_ex_data(rsa, kropenssl_get_rsa_idx(), ssl) == 1;
  }
  case EVP_PKEY_DSA: {
    DSA *dsa = EVP_PKEY_get0_DSA(key);
    return delegates(DSA_get0_engine(dsa), false) && DSA_set_ex_data(dsa, kropenssl_get_dsa_idx(), ssl) == 1;
  }
  default: {
    EC_KEY *ec = EVP_PKEY_get0_EC_KEY(key);
    return delegates(EC_KEY_get0_engine(ec), true) && EC_KEY_set_ex_data(ec, kropenssl_get_ecdsa_idx(), ssl) == 1;
  }
  }
}

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
      // An RSA signature goes into OpenSSL's own buffer, which has the size of the key, whatever the capacity.
      const auto room = static_cast<std::size_t>(type == NID_md5_sha1 ? std::min(keySize, capacity) : capacity);
      const std::size_t written = key->signer({{data, length}, hashOfLength(length)}, {out, room});
      if (written == 0 || written > room) {
        return false;
      }
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

/// A fresh key object with the public half of @p key and nothing more, bound to the engine of the current mode: what a
/// process-wide callback is given in place of a private key.
///
/// @throws DelegateError for keys other than RSA, DSA and EC
inline EVPPKeyPtr publicHalf(EVP_PKEY *key) {
  detail::require(key != nullptr, "a key is missing");
  EVPPKeyPtr half = detail::required(EVPPKeyPtr(EVP_PKEY_new()));
  int done = 0;
  switch (EVP_PKEY_base_id(key)) {
  case EVP_PKEY_RSA:
    done = EVP_PKEY_set1_RSA(half.get(), detail::publicHalf(EVP_PKEY_get0_RSA(key)).get());
    break;
  case EVP_PKEY_DSA:
    done = EVP_PKEY_set1_DSA(half.get(), detail::publicHalf(EVP_PKEY_get0_DSA(key)).get());
    break;
  case EVP_PKEY_EC:
    done = EVP_PKEY_set1_EC_KEY(half.get(), detail::publicHalf(EVP_PKEY_get0_EC_KEY(key)).get());
    break;
  default:
    throw DelegateError("only RSA, DSA and EC keys can be delegated");
  }
  detail::require(done == 1, "the key cannot be used");
  return half;
}

/// A private key that is elsewhere, for TLS connections: the provider's record, the key objects, what they point to
/// and their lifetimes.
///
/// Copies share the signer. The object itself may end before the connections: each SSL_CTX keeps what its connections
/// need until the last of them is freed. One context serves one key of each type.
///
/// @note Safe from any thread. A signer that refers to other objects needs them until the last connection is gone.
class DelegatedKey {
public:
  /// @param library    proof that the library is set up, since keys made earlier are not delegated
  /// @param publicKey  the certificate's key, X509_get0_pubkey(certificate); only its public half is copied
  /// @param signer     has the private key
  /// @throws DelegateError for keys other than RSA, DSA and EC, and for an empty signer
  DelegatedKey([[maybe_unused]] const Library &library, EVP_PKEY *publicKey, Signer signer) {
    detail::require(static_cast<bool>(signer), "a signer is missing");
    shared_ = std::make_shared<const detail::SharedKey>(detail::SharedKey{publicHalf(publicKey), std::move(signer)});
  }
  DelegatedKey(const Library &&, EVP_PKEY *, Signer) = delete; ///< the library has to outlive this call
  DelegatedKey(const DelegatedKey &) = default;                ///< moving is copying: no object is ever without its key
  DelegatedKey &operator=(const DelegatedKey &) = default;     ///< the same
  ~DelegatedKey() = default;

  /// Readies a context for connections with this key, before it has any: stores the record on it, and replaces its
  /// signature algorithms and its ciphers of TLS 1.2 by those that go through a provider, with TLS 1.2 as the highest
  /// version for RSA and DSA. A context with keys of several types needs limits of its own; bindTo alone serves it.
  ///
  /// @throws DelegateError when the context carries another key of this type or a record that is not this class's, or
  ///         when OpenSSL refuses the limits
  void prepare(SSL_CTX *context) const {
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

  /// Gives the connection a key object of its own, which signs through this key. To be called once the connection has
  /// its SSL_CTX (after SSL_set_SSL_CTX, in a server that chooses by name) and its certificate, and before its
  /// handshake signs. A certificate of another type than the key's is not noticed, and one that is set afterwards
  /// takes the key away.
  ///
  /// It stores the record on a context that has not been readied. OpenSSL does not guard a context's ex-data: where
  /// other threads read it, ready the context first.
  ///
  /// The key object names the connection: it must not outlive it, and a copy that SSL_dup made of the connection needs
  /// a bindTo of its own.
  ///
  /// @throws DelegateError when the context carries another key of this type or a record that is not this class's,
  ///         when no engine that delegates serves the key's type (DSA in FIPS mode), or when OpenSSL refuses the key,
  ///         as it does when the connection's certificate of this type has another; the connection then has lost
  ///         that certificate and is to be freed
  void bindTo(SSL *ssl) const {
    detail::require(ssl != nullptr, "a connection is missing");
    const EVPPKeyPtr key = publicHalf(shared_->publicHalf.get());
    detail::require(detail::nameConnection(key.get(), ssl), "no engine that delegates serves this key");
    detail::ContextRecord::serve(SSL_get_SSL_CTX(ssl), shared_, [&] {
      detail::require(SSL_use_PrivateKey(ssl, key.get()) == 1, "the connection refuses the key");
    });
  }

private:
  std::shared_ptr<const detail::SharedKey> shared_;
};

} // namespace krOpenSSL
