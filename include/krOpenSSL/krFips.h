// What mode the process is in, and what the external FIPS module says of itself.
#pragma once

#include <krOpenSSL/krExport.h>

extern "C" {

/// @return 1 in FIPS mode, else 0
/// @note Safe from any thread, as the two others.
KR_API int krFipsMode();

/// @return 1 when the external FIPS module reports its error state, else 0; 0 when no module is attached
KR_API int krFipsModeError();

/// @return 1 when wolfEngine, an engine inside OpenSSL, is chosen to provide FIPS mode; 0 when the external
///         FIPS module is
KR_API int krFipsUsingOpenSSLFIPS();

} // extern "C"
