// What the library needs of the operating system, named for the need. posix/ and windows/ answer it.
#pragma once

#include <cstdint>

namespace krOpenSSL::platform {

/// Fills the buffer from the system's random source; false when it has none to give.
bool systemRandom(unsigned char *buffer, std::uint32_t length) noexcept;

/// Has @p inChild run in every child that this process forks from now on, before fork returns there
/// and while the child has one thread. Call it once for a function.
///
/// @return false when the system could not arrange it; true at once where processes do not fork
bool watchForks(void (*inChild)()) noexcept;

/// The number of this process; a forked child has another one.
std::int64_t processId() noexcept;

} // namespace krOpenSSL::platform
