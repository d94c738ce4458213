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
/// With one function, a signer of digests, what goes through a delegated key is what krDelegation.h says of the
/// provider: no RSA-PSS, so no TLS 1.3 with RSA. KeyOperations have it whole. DSA and ECDSA over 28 bytes are refused.
/// The code that includes this header registers functions with OpenSSL: it has to stay loaded.
#pragma once

#include <krOpenSSL/krDelegation.h>
#include <krOpenSSL/krHandles.h>
#include <krOpenSSL/krLifecycle.h>

#include <cstddef>
#include <functional>
#include <memory>
#include <span>
#include <stdexcept>

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
  Library();
  ~Library();
  Library(const Library &) = delete;
  Library &operator=(const Library &) = delete;
};

/// The hash whose digests have this length: NID_sha1, NID_sha224, NID_sha256, NID_md5_sha1 (36 bytes, which RSA signs
/// without a DigestInfo), NID_sha384 or NID_sha512; NID_undef for other lengths.
constexpr int hashOfLength(std::size_t digestBytes) noexcept;

/// What a signer is asked for.
struct SignRequest {
  std::span<const unsigned char> digest; ///< the bare digest, there during the call only
  int hash;                              ///< hashOfLength of it
};

/// Signs with the private key, wherever that is, into @p out, which has the size of the key (RSA_size, DSA_size,
/// ECDSA_size): PKCS#1 v1.5 for RSA, a DER-encoded signature for DSA and EC.
///
/// It finds OpenSSL's error queue empty. Entries that it leaves there are dropped when it succeeds, or they would make
/// SSL_get_error report a failure that there was not; when it fails they are added to those of before, as its reasons.
///
/// @return bytes written; 0, more than @p out has, or an exception makes the handshake fail
/// @note Called on the threads of the handshakes, several at once, without any lock held. It must not end or cancel its
///       thread, and must not own the SSL_CTX, which owns it. For DSA and EC, 19 KB of the thread's stack are in use
///       when it begins: of a 32 KiB fibre or ASYNC job it has some 14 KB.
using Signer = std::function<std::size_t(const SignRequest &request, std::span<unsigned char> out)>;

/// A block of RSA_size bytes that is padded already, and to which RSA's private operation is to be applied: in TLS
/// always RSA-PSS.
struct PssRequest {
  static constexpr int kUnknownSalt = -1; ///< where the block does not tell

  std::span<const unsigned char> block; ///< there during the call only
  int hash;                             ///< as the block tells: NID_undef where it does not
  int maskHash;                         ///< likewise
  int saltLength;                       ///< in bytes, likewise; kUnknownSalt
};

/// Applies RSA's private operation to the block (RSA_private_encrypt without padding). The result is of RSA_size bytes;
/// all else is as for a Signer, with 6 KB of the stack in use.
using PssSigner = std::function<std::size_t(const PssRequest &request, std::span<unsigned char> out)>;

/// What a decrypter is asked for.
struct DecryptRequest {
  std::span<const unsigned char> data; ///< there during the call only
  int padding;                         ///< RSA_NO_PADDING (TLS and EVP take it off themselves), RSA_PKCS1_PADDING or
                                       ///< RSA_PKCS1_OAEP_PADDING over SHA-1, which is to be taken off
};

/// Decrypts with the private key; all else is as for a PssSigner. Where it takes padding off, nobody may learn from its
/// time or result whether that was right: it answers as for no padding, or is not reached by others.
using Decrypter = std::function<std::size_t(const DecryptRequest &request, std::span<unsigned char> out)>;

/// All that a key can be asked for. What is empty is refused.
struct KeyOperations {
  Signer sign;       ///< signatures over digests
  PssSigner signPss; ///< RSA alone: RSA-PSS, and so TLS 1.3
  Decrypter decrypt; ///< RSA alone: key transport of TLS 1.2 and below, OAEP. In FIPS mode it is not asked
};

namespace detail {
struct SharedKey;
} // namespace detail

/// A fresh key object with the public half of @p key and nothing more, bound to the engine of the current mode: what a
/// process-wide callback is given in place of a private key.
///
/// @throws DelegateError for keys other than RSA, DSA and EC
EVPPKeyPtr publicHalf(EVP_PKEY *key);

/// The same with the private half: a key whose operations go by the engine of the current mode, with an object that is
/// the key's own. With OpenSSL 3 a key that OpenSSL read or generated itself has none: what a program sets on the
/// object that EVP_PKEY_get0_RSA and the like give for it is not seen when it signs.
///
/// @throws DelegateError as publicHalf, and for a key without a private half
EVPPKeyPtr engineKey(EVP_PKEY *key);

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
  DelegatedKey(const Library &library, EVP_PKEY *publicKey, Signer signer);
  DelegatedKey(const Library &&, EVP_PKEY *, Signer) = delete; ///< the library has to outlive this call

  /// The same with all operations.
  /// @throws DelegateError for keys other than RSA, DSA and EC, and where there is no function that signs with the type
  DelegatedKey(const Library &library, EVP_PKEY *publicKey, KeyOperations operations);
  DelegatedKey(const Library &&, EVP_PKEY *, KeyOperations) = delete; ///< as above

  DelegatedKey(const DelegatedKey &) = default;            ///< moving is copying: no object is ever without its key
  DelegatedKey &operator=(const DelegatedKey &) = default; ///< the same
  ~DelegatedKey() = default;

  /// Readies a context of a server or a client for connections with this key, before it has any: stores the record on
  /// it, and takes away what the key would be asked for and cannot do. What the caller allowed is never widened, so
  /// DSA needs a list of ciphers that has DHE-DSS, which OpenSSL's own has not:
  ///
  /// - the highest version is TLS 1.2 for DSA, and for RSA without KeyOperations::signPss;
  /// - signatures of one's own with keys of this type are made with SHA-256, SHA-384 or SHA-512 (DSA: SHA-256), and
  /// with
  ///   the paddings that there are functions for. What the peer may sign with is as it was;
  /// - a server does not agree on RSA key transport without KeyOperations::decrypt, nor in FIPS mode.
  ///
  /// The last two go through the context's security callback, before the one that was set
  /// (SSL_CTX_set_security_callback takes them away). They hold in later handshakes too, whatever is set on the context
  /// or a connection afterwards. Contexts with keys of several types may be readied for each.
  ///
  /// @throws DelegateError when the context carries another key of this type or a record that is not this class's, or
  ///         when no version, no cipher suite or no signature algorithm that the context allows is left for the key;
  ///         the context is then as it was, but for the record
  void prepare(SSL_CTX *context) const;

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
  void bindTo(SSL *ssl) const;

private:
  std::shared_ptr<const detail::SharedKey> shared_;
};

} // namespace krOpenSSL

#include <krOpenSSL/detail/delegation.hpp>
