/// @file
/// Error texts, the version of the OpenSSL in use, and seed bytes from the operating system.
#pragma once

#include <krOpenSSL/krExport.h>

#ifdef __cplusplus
#include <cstddef>
#include <string>

extern "C" {
#else
#include <stddef.h>
#endif

/// @return the version text of the OpenSSL library in use; OpenSSL owns it
/// @note Safe from any thread.
KR_API const char *krGet_OpenSSL_Version(void);

/// Fills @p buffer with random bytes of the operating system.
///
/// @param buffer  receives @p length bytes
/// @param length  bytes wanted; only its low 32 bits count, a larger request is served in part
/// @return 1 when the buffer was filled; 0 when the system gave none or @p buffer is null, the
///         content of the buffer is then unspecified
/// @note Safe from any thread. It does not use OpenSSL.
KR_API int krPlatformGetSeed(unsigned char *buffer, size_t length);

#ifdef __cplusplus
} // extern "C"

namespace krOpenSSL {

/// The text of an OpenSSL error code, at most 511 characters.
///
/// @param code  an error code, or 0 to take (and remove) the next one from the calling thread's
///              error queue; with an empty queue the text is OpenSSL's for error 0
/// @return the text; without names once OpenSSL has been cleaned up by OPENSSL_cleanup, where every queue
///         counts as empty; empty when memory ran out
/// @note Safe from any thread.
KR_API const std::string errStr(unsigned long code);

} // namespace krOpenSSL
#endif
