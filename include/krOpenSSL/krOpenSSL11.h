/// @file
/// Refuses other versions of OpenSSL than the library's, in C and C++. Every header includes it.
#pragma once

#include <openssl/opensslv.h>

#if OPENSSL_VERSION_NUMBER < 0x10101000L || OPENSSL_VERSION_NUMBER >= 0x20000000L
#error "krOpenSSL works with OpenSSL 1.1.1: its headers have to come before those of another version"
#endif
