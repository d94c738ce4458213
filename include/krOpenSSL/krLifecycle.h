/// @file
/// Bringing OpenSSL up and down by reference count, and loading and unloading the library's engine.
#pragma once

#include <krOpenSSL/krExport.h>

#ifdef __cplusplus
extern "C" {
#endif

/// Adds one user of OpenSSL. The first one initialises OpenSSL (error strings loaded, no
/// configuration file read, no exit handler registered), loads the engine of the current mode with
/// krOpenSSLEngineLoad, and seeds the random source.
///
/// Keys that OpenSSL makes from then on are bound to the engine; keys made earlier are not.
///
/// The library's trace, lines that begin with "krOpenSSL " on the standard output, is on unless the environment says
/// KR_TRACE=off, which is read once, at the library's first line or here, and not in set-user-ID programs. Where
/// descriptor 1 is not open then, nothing is written for the life of the process, whatever gets that number later. The
/// library does not ignore SIGPIPE.
///
/// @return 0 on success and on every call that is not the first; 1 when OpenSSL could not be
///         initialised. The call counts in both cases, so each is to be paired with krOSSLCleanup.
/// @note Any thread may call it. The count is atomic, and exactly one call does the work; a call
///       that finds the count already raised returns at once, even while the first is still busy.
KR_API int krOSSLSetup(void);

/// Takes one user away. The last one unloads the engine, empties the RSA private-encrypt, DSA and
/// ECDSA callback slots (the RSA private-decrypt slot keeps its callback), and clears the calling
/// thread's OpenSSL error queue. OpenSSL itself stays initialised.
///
/// An unmatched call takes the count below 0; as many set-ups bring it back without doing anything
/// else.
///
/// @return 0
/// @note Any thread may call it; callers keep it apart from other use of the library's
///       cryptography.
KR_API int krOSSLCleanup(void);

/// Loads the engine of the current mode. In ordinary mode that is "qvlib": built, added to OpenSSL's list and
/// registered for RSA, DSA, EC and random numbers. In FIPS mode it is wolfEngine, made the default for everything,
/// or "qvlibFIPS" where the external FIPS module is chosen. A later load registers the very engine that the first
/// one listed.
///
/// krOSSLSetup and the mode switches call this. Building "qvlib" or "qvlibFIPS" clears the calling thread's OpenSSL
/// error queue.
///
/// @return 1 when an engine was registered; 0 when none could be built, found or initialised, and after
///         OPENSSL_cleanup
/// @note Callers keep it apart from other use of the library's cryptography.
KR_API int krOpenSSLEngineLoad(void);

/// Unregisters the engine that the last load registered, or does nothing when there is none. Keys
/// that are bound to it keep working, as does a random method that OpenSSL already took from it. In FIPS mode it also
/// ends wolfEngine's logging and gives its initialisation back.
///
/// @return 1
/// @note Callers keep it apart from other use of the library's cryptography.
KR_API int krOpenSSLEngineUnload(void);

#ifdef __cplusplus
} // extern "C"
#endif
