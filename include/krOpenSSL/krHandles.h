/// @file
/// Owning handles for OpenSSL's objects: std::unique_ptr with each type's own free function.
/// Header only; used by the library itself and free for its callers to use.
#pragma once

#include <krOpenSSL/krOpenSSLVersion.h>

#include <openssl/bio.h>
#include <openssl/bn.h>
#include <openssl/dh.h>
#include <openssl/dsa.h>
#include <openssl/ec.h>
#include <openssl/engine.h>
#include <openssl/evp.h>
#include <openssl/rsa.h>
#include <openssl/ssl.h>
#include <openssl/x509.h>

#include <memory>

namespace krOpenSSL {

/// A deleter that calls @p FreeFunction, for OpenSSL's X_free functions.
template <auto FreeFunction> struct Free {
  /// Frees the object.
  template <class Object> void operator()(Object *object) const noexcept { FreeFunction(object); }
};

/// A pointer that owns an object of OpenSSL's.
template <class Object, auto FreeFunction> using Handle = std::unique_ptr<Object, Free<FreeFunction>>;

/// Owns an object of the type that the name begins with.
///@{
using BIGNUMPtr = Handle<BIGNUM, BN_clear_free>;
using BIOPtr = Handle<BIO, BIO_free_all>;
using DHPtr = Handle<DH, DH_free>;
using DHMethodPtr = Handle<DH_METHOD, DH_meth_free>;
using DSAPtr = Handle<DSA, DSA_free>;
using DSAMethodPtr = Handle<DSA_METHOD, DSA_meth_free>;
using DSASigPtr = Handle<DSA_SIG, DSA_SIG_free>;
using ECDSASigPtr = Handle<ECDSA_SIG, ECDSA_SIG_free>;
using ECKeyPtr = Handle<EC_KEY, EC_KEY_free>;
using ECKeyMethodPtr = Handle<EC_KEY_METHOD, EC_KEY_METHOD_free>;
using ENGINEPtr = Handle<ENGINE, ENGINE_free>;
using EVPMDCtxPtr = Handle<EVP_MD_CTX, EVP_MD_CTX_free>;
using EVPPKeyPtr = Handle<EVP_PKEY, EVP_PKEY_free>;
using EVPPKeyCtxPtr = Handle<EVP_PKEY_CTX, EVP_PKEY_CTX_free>;
using RSAPtr = Handle<RSA, RSA_free>;
using RSAMethodPtr = Handle<RSA_METHOD, RSA_meth_free>;
using SSLPtr = Handle<SSL, SSL_free>;
using SSLCtxPtr = Handle<SSL_CTX, SSL_CTX_free>;
using X509Ptr = Handle<X509, X509_free>;
using X509SigPtr = Handle<X509_SIG, X509_SIG_free>;
///@}

/// The RSA, DSA or EC_KEY object of a key, which owns it; null for a key of another type. As 1.1.1's EVP_PKEY_get0_RSA
/// and the like: OpenSSL 3 calls the answer const, and for a key that it read itself gives a copy that it made on first
/// need, over the engine in force then. Not for `using namespace krOpenSSL` to bring in, lest it meet others' names.
namespace keyObject {
inline RSA *rsaOf(EVP_PKEY *key) noexcept { return const_cast<RSA *>(EVP_PKEY_get0_RSA(key)); }            ///< the RSA
inline DSA *dsaOf(EVP_PKEY *key) noexcept { return const_cast<DSA *>(EVP_PKEY_get0_DSA(key)); }            ///< the DSA
inline EC_KEY *ecKeyOf(EVP_PKEY *key) noexcept { return const_cast<EC_KEY *>(EVP_PKEY_get0_EC_KEY(key)); } ///< the EC
} // namespace keyObject

/// Hands objects to a setter of OpenSSL's that owns them once it answers other than 0.
///
/// @return the setter's answer; 0, with the setter not called, when an object is missing: some setters would take it as
///         null and leave theirs incomplete. What was not taken stays with its handle
template <class Setter, class... Handles> int handOver(Setter setter, Handles &&...handles) noexcept {
  const int taken = (... && (handles != nullptr)) ? setter(handles.get()...) : 0;
  if (taken != 0) {
    (static_cast<void>(handles.release()), ...);
  }
  return taken;
}

} // namespace krOpenSSL
