/// @file
/// Refuses other versions of OpenSSL than the library's, in C and C++. Every header includes it.
#pragma once

#include <openssl/opensslconf.h>
#include <openssl/opensslv.h>

#if OPENSSL_VERSION_NUMBER < 0x10101000L || OPENSSL_VERSION_NUMBER >= 0x40000000L
#error "krOpenSSL works with OpenSSL 1.1.1 and 3: its headers have to come before those of another version"
#endif
#ifdef OPENSSL_NO_ENGINE
#error "krOpenSSL works with OpenSSL's engines, and this OpenSSL was built without them"
#endif

// The CMake package and pkg-config name the OpenSSL that their library was built for: objects of the one mean nothing
// to the other.
#if defined(KR_OPENSSL_SERIES) && (KR_OPENSSL_SERIES == 3) != (OPENSSL_VERSION_NUMBER >= 0x30000000L)
#error "this krOpenSSL was built for the other of OpenSSL 1.1.1 and 3 than the one whose headers come first"
#endif
