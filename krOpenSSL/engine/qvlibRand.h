// The engine's random method: OpenSSL's random numbers from the process-wide FIPS 186-2 generator.
#pragma once

#include <openssl/rand.h>

// OpenSSL caches the method once it has served a call and may use it after the engine is unregistered, and
// from its exit handler. So it never goes away.
extern const RAND_METHOD qvlib_rand_method;

/// Seeds the generator, or stirs the input in when it is seeded. Negative counts, and a null buffer with a
/// count of 64 or more, are refused. Returns 0 always.
int qvlib_rand_seed(const void *buf, int num) noexcept;
/// Fills the buffer; 0, with nothing written, when the generator cannot be seeded or the arguments are bad.
int qvlib_rand_bytes(unsigned char *buf, int num) noexcept;
/// Has the next request seed the generator again.
void qvlib_rand_cleanup() noexcept;
/// Stirs the input into a seeded generator; the estimate is not used. Returns 0 always.
int qvlib_rand_add(const void *buf, int num, double randomness) noexcept;
int qvlib_rand_status() noexcept;
