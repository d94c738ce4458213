/// @file
/// FIPS mode: switching the process into it and back, who provides it, and what the external FIPS module says of
/// itself.
///
/// In FIPS mode OpenSSL's algorithms come from wolfEngine, an engine of OpenSSL, or from an external FIPS module
/// through the engine "qvlibFIPS". A switch unloads the engine of one mode and loads the engine of the other; it
/// does not need krOSSLSetup, and the mode outlives krOSSLCleanup.
///
/// The queries are safe from any thread. Callers keep everything else here apart from other use of the library's
/// cryptography.
#pragma once

#include <krOpenSSL/krExport.h>

#ifdef __cplusplus

namespace krOpenSSL {

/// What the switches and krFipsSetPath return. In C compare with the numbers.
inline constexpr unsigned int kFipsOk = 0;
inline constexpr unsigned int kFipsPathTooLong = 0xE0050001;  ///< the path has 260 characters or more
inline constexpr unsigned int kFipsNotAvailable = 0xE0050005; ///< FIPS mode cannot be switched on

} // namespace krOpenSSL

extern "C" {
#endif

/// @return 1 in FIPS mode, else 0
KR_API int krFipsMode(void);

/// Switches FIPS mode on: unloads the engine in force, loads wolfEngine and makes it OpenSSL's default for all
/// algorithms. Keys that are delegated go on signing through their callbacks and providers (RSA and EC), as far
/// as they do in ordinary mode. Random numbers then come from wolfEngine, unless the host has installed a random
/// method of its own; OpenSSL's built-in one, RAND_OpenSSL(), is dropped when FIPS mode is entered, whoever chose it.
/// Nothing of the ordinary generator is fed into wolfEngine's.
///
/// In FIPS mode already, it unloads and loads wolfEngine again, and leaves a random method of the host's, the built-in
/// one included.
///
/// @return kFipsOk; or kFipsNotAvailable: when wolfEngine has not been chosen with krFipsUseOpenSSLFIPS,
///         with nothing touched, or when it could not be loaded, with the process back in ordinary mode
KR_API unsigned int krFipsModeOn(void);

/// The same as krFipsModeOn; the argument has no effect.
KR_API unsigned int krFipsModeOnEx(int unused);

/// Switches FIPS mode off: unloads the engine in force and loads "qvlib". The random method then in force,
/// "qvlib"'s unless the host has its own, is fed with 64 bytes drawn before the swap (nothing, when the draw failed).
/// It does so in ordinary mode too. OpenSSL's built-in random method is dropped when FIPS mode is left and "qvlib"
/// loaded; in ordinary mode it stays.
///
/// @return kFipsOk, also when "qvlib" could not be loaded; OpenSSL then works with its built-in methods
KR_API unsigned int krFipsModeOff(void);

/// krFipsModeOff, and lets go of the external FIPS module: its dispatch table is forgotten, its library freed.
KR_API void krFipsClose(void);

/// Keeps the path of the external FIPS module for that module's loader.
///
/// @param path  at most 259 characters, copied; null forgets the path
/// @return kFipsOk; or kFipsPathTooLong, with no path kept
KR_API unsigned int krFipsSetPath(const char *path);

/// @return the external FIPS module's own state code (3 is its error state); 0 when no module is attached
KR_API int krFipsGetState(void);

/// @return 1 when the external FIPS module reports its error state, else 0; 0 when no module is attached
KR_API int krFipsModeError(void);

/// Chooses who provides FIPS mode from the next engine load on: wolfEngine when @p use is not 0, the external
/// FIPS module when it is. FIPS mode can be switched on for wolfEngine only.
///
/// @return the stored choice, 1 or 0
KR_API int krFipsUseOpenSSLFIPS(int use);

/// @return 1 when wolfEngine is chosen to provide FIPS mode, else 0
KR_API int krFipsUsingOpenSSLFIPS(void);

/// Switches the logging of wolfEngine and wolfSSL into the library's log file on or off. The level that
/// wolfEngine gets is always 1. Outside FIPS mode it is switched off whatever is asked for.
///
/// @param level  -1 for off, anything else for on
/// @return 1 when wolfEngine took all five commands, else 0: outside FIPS mode too, since the engine in force
///         there has no such commands
KR_API int krSetWolfEngineLogLevel(int level);

#ifdef __cplusplus
} // extern "C"
#endif
