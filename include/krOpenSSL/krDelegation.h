/// @file
/// Keeping private keys outside OpenSSL: the callbacks that stand in for private-key operations, and
/// the records that bind an operation to one TLS connection.
///
/// While the library is set up in ordinary mode, every key that OpenSSL makes is bound to the engine "qvlib". For
/// each private-key operation with such a key the engine decides, in this order:
///
/// | operation           | key carries an SSL * | callback registered | neither              |
/// |---------------------|----------------------|---------------------|----------------------|
/// | RSA private encrypt | provider, type 114   | callback            | OpenSSL's own method |
/// | RSA private decrypt | (not looked at)      | callback            | OpenSSL's own method |
/// | DSA sign            | provider, type 116   | callback            | OpenSSL's own method |
/// | ECDSA sign          | provider, type 791   | callback            | OpenSSL's own method |
///
/// "Provider" is the ift_provider record found on the SSL_CTX of that connection. Software keys take the last column
/// and work as without the library; while a callback is registered, it gets those of its type. Keys made in FIPS mode
/// are wolfEngine's: RSA and ECDSA signatures are decided in the same order, decryption and DSA are not delegated.
///
/// What does not go through the provider, and is refused there: RSA-PSS (it signs a padded block of
/// RSA_size bytes, TLS 1.3's only RSA scheme), but for keys with the flag KR_RSA_WHOLE_KEY, and raw
/// digests of other lengths than 20, 32, 36, 48 and 64 bytes, SHA-224 for DSA and ECDSA among them.
/// A server that delegates by provider without that flag therefore limits its signature algorithms, for instance to
/// "RSA+SHA256:RSA+SHA384:RSA+SHA512" with TLS 1.2 as its highest version, to "ECDSA+SHA256:..." or
/// to "DSA+SHA256".
#pragma once

#include <krOpenSSL/krExport.h>

#include <openssl/bn.h>
#include <openssl/dsa.h>
#include <openssl/ec.h>
#include <openssl/rsa.h>

#ifdef __cplusplus
#include <cstdint>

extern "C" {
#else
#include <stdbool.h>
#include <stdint.h>
#endif

/// Carries out an RSA private-key operation; arguments and result are those of OpenSSL's priv_enc
/// and priv_dec.
///
/// @param flen     bytes at @p from
/// @param from     the input: for TLS signatures a DER DigestInfo or the 36 bytes MD5+SHA-1
///                 (PKCS#1), or RSA_size bytes (no padding, RSA-PSS)
/// @param to       the output, RSA_size(rsa) bytes
/// @param rsa      the key that OpenSSL was given; its public half is all it needs to hold
/// @param padding  OpenSSL's padding mode (RSA_PKCS1_PADDING, RSA_NO_PADDING, ...)
/// @return bytes written to @p to, or -1 on failure. More than RSA_size(rsa), as it was before the
///         call, counts as -1; 0, a negative number and less than RSA_size are passed on as they are
/// @note Runs on the thread that performs the operation; no lock of the library is held. A callback
///       that throws counts as failed; it must not end or cancel its thread. What it leaves on
///       OpenSSL's error queue stays there: clear it on success, or SSL_get_error reports a failure
///       (SSL_ERROR_SSL) of a connection that only waits for its peer, which ends it. The same holds
///       for the other callback types.
typedef int (*RSAPrivateKeyOpCallback)(int flen, const unsigned char *from, unsigned char *to, RSA *rsa, int padding);

/// Makes a DSA signature of the @p dlen bytes at @p dgst.
/// @return a new signature, which OpenSSL then owns, or null on failure. One whose DER encoding is
///         longer than DSA_size(dsa), as it was before the call, is freed and counts as null; for a
///         key without q every one is. Nothing else is looked at
typedef DSA_SIG *(*DSAPrivateKeyOpCallback)(const unsigned char *dgst, int dlen, DSA *dsa);

/// Makes an ECDSA signature of the @p dgst_len bytes at @p dgst. @p kinv and @p r are the values that
/// a caller of OpenSSL precomputed, usually null.
/// @return a new signature, which OpenSSL then owns, or null on failure. One whose DER encoding is
///         longer than ECDSA_size(eckey), as it was before the call, is freed and counts as null; for
///         a key without a group every one is. Nothing else is looked at
typedef ECDSA_SIG *(*ECDSAPrivateKeyOpCallback)(const unsigned char *dgst, int dgst_len, const BIGNUM *kinv,
                                                const BIGNUM *r, EC_KEY *eckey);

/// Registers the process-wide callback for RSA private encryption (signing) when @p selector is not
/// zero, for RSA private decryption when it is zero. Null empties the slot.
///
/// @note May be called before krOSSLSetup. Each operation reads the slot once: an operation that
///       has begun keeps the callback it read. The last krOSSLCleanup empties the encrypt slot, not
///       the decrypt slot.
KR_API void krEngineSetRSAPrivateKeyOpCallback(RSAPrivateKeyOpCallback callback, int selector);

/// Registers the process-wide callback for DSA signatures; null empties the slot, as does the last
/// krOSSLCleanup.
KR_API void krEngineSetDSAPrivateKeyOpCallback(DSAPrivateKeyOpCallback callback);

/// Registers the process-wide callback for ECDSA signatures; null empties the slot, as does the last
/// krOSSLCleanup.
KR_API void krEngineSetECDSAPrivateKeyOpCallback(ECDSAPrivateKeyOpCallback callback);

/// A flag for an RSA key that carries an `SSL *` (RSA_set_flags, before the key's first use): the
/// provider gets padded blocks to sign, and decryptions too, each with a type of its own, and answers
/// with what RSA's private operation makes of them. Without it the first are refused, and decryptions
/// do not look at the `SSL *`.
///
/// | type                  | operation, with the data's length                            |
/// |-----------------------|--------------------------------------------------------------|
/// | 912 (NID_rsassaPss)   | private encryption without padding, RSA_size bytes           |
/// | 6 (NID_rsaEncryption) | decryption with PKCS#1 v1.5 padding                          |
/// | 919 (NID_rsaesOaep)   | decryption with OAEP padding over SHA-1                      |
/// | 19 (NID_rsa)          | decryption without padding: what TLS and EVP ask for         |
///
/// Decryptions with other paddings fail. A key object made in FIPS mode decrypts through wolfEngine, whatever the flag.
enum { KR_RSA_WHOLE_KEY = 0x40000000 };

/// The ex-data index for RSA keys: store the connection's `SSL *` there with RSA_set_ex_data, and
/// the key signs through that connection's provider.
///
/// The library never owns, copies or frees what is stored: the SSL object has to outlive the key's
/// use, and one key object serves one connection: a copy of the connection by SSL_dup shares it, and needs its own.
///
/// @return the index, made by the first call and the same ever after; -1 when OpenSSL could not make
///         one (the next call tries again)
/// @note Safe from any thread; racing first calls get the same index. The same holds for the other
///       three.
KR_API int kropenssl_get_rsa_idx(void);

/// As kropenssl_get_rsa_idx, for DSA keys and DSA_set_ex_data.
KR_API int kropenssl_get_dsa_idx(void);

/// As kropenssl_get_rsa_idx, for EC keys and EC_KEY_set_ex_data.
KR_API int kropenssl_get_ecdsa_idx(void);

/// The ex-data index for SSL_CTX objects: store a pointer to an ift_provider record there with
/// SSL_CTX_set_ex_data. The record has to outlive the connections of that context.
KR_API int kropenssl_get_ssl_ctx_idx(void);

/// Signs for one connection. OpenSSL's hash algorithm is not passed on: tell it by the digest's
/// length.
///
/// @param arg        the record's arg
/// @param type       114 (NID_md5_sha1) for RSA, whatever the digest; 116 (NID_dsa) for DSA;
///                   791 (NID_ecdsa_with_Recommended) for ECDSA; others for keys with the flag
///                   KR_RSA_WHOLE_KEY
/// @param keySize    RSA_size, DSA_size or ECDSA_size of the key
/// @param data       the bare digest: 20, 32, 36 (MD5+SHA-1), 48 or 64 bytes, or what an RSA
///                   DigestInfo held
/// @param dataLength its length in bytes
/// @param out        for RSA receives the signature, keySize bytes and never more; for DSA and ECDSA
///                   the DER-encoded signature: @p capacity bytes are there, and one whose encoding is
///                   longer than keySize counts as failure
/// @param capacity   16378, for RSA too, although only keySize bytes are there
/// @param outLength  0 on entry; set it to the number of bytes written. 0, a negative number, or one
///                   above what may be written, counts as failure
/// @return true on success
/// @note Runs on the thread of the handshake, without any lock of the library: a callback shared by
///       connections has to be safe for concurrent calls. What it leaves on OpenSSL's error queue
///       stays there: clear it on success, as with the other callbacks.
/// @note For DSA and ECDSA the 16 KiB behind @p out are on the stack. A handshake with such a signature
///       needs 20 KB of it (with RSA 6 KB, as without the library). 18 KB of them are in use when the
///       callback begins: of a 32 KiB fibre or ASYNC job it has some 15 KB for itself.
typedef bool (*ift_private_key_operation_cb)(void *arg, int type, int keySize, const unsigned char *data,
                                             int dataLength, unsigned char *out, int capacity, int32_t *outLength);

/// The caller's record on an SSL_CTX, stored under kropenssl_get_ssl_ctx_idx(). The caller owns it.
typedef struct ift_provider {
  void *reserved;                        ///< the caller's own; the library never reads it
  ift_private_key_operation_cb callback; ///< called for every delegated operation
  void *arg;                             ///< handed to the callback unchanged
} ift_provider;

#ifdef __cplusplus
} // extern "C"
#endif
