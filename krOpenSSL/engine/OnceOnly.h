// What OpenSSL initialises once.
#pragma once

namespace krOpenSSL {

/// Has OpenSSL initialise what it initialises once in a process and never tries again, with the memory for it at hand
/// beforehand: where one of these steps fails, engines or random numbers are lost for the life of the process.
///
/// @return false, with nothing lost, when there is no memory, or OpenSSL has been cleaned up; the next call tries again
bool initialiseOnce() noexcept;

} // namespace krOpenSSL
