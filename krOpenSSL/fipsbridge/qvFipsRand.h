// The bridge's random method: the generator of the FIPS module.
#pragma once

#include <openssl/rand.h>

/// Reseeds a generator that is ready and returns what the module says; else instantiates it.
/// @return for an instantiation 1, or 0 when the module refused it; 0 without a module
int qvFipsRandSeed(const void *buf, int num) noexcept;

/// @return 1; or 0 without a module, with a generator that is not ready, or when the module fails
int qvFipsRandBytes(unsigned char *buf, int num) noexcept;

void qvFipsRandCleanup() noexcept;

/// Reseeds, whether the generator is ready or not. @return what the module says; 0 without a module
int qvFipsRandAdd(const void *buf, int num, double randomness) noexcept;

/// @return 1 when the generator is ready, else 0
int qvFipsRandStatus() noexcept;

extern const RAND_METHOD qvFipsRandMethod;
