// What the host says of the external FIPS module, for whoever loads it: nothing in the library does.
#pragma once

#include <array>
#include <atomic>
#include <cstddef>

namespace krOpenSSL {

/// NUL-terminated, empty when not given or too long. Written by krFipsSetPath.
inline constexpr std::size_t kFipsModulePathBytes = 260;
extern std::array<char, kFipsModulePathBytes> fipsModulePath;
extern std::atomic<int> fipsModulePathGiven;
extern std::atomic<int> fipsModulePathTooLong;

/// The loaded module, which krFipsClose frees.
extern std::atomic<void *> fipsModuleHandle;

} // namespace krOpenSSL
