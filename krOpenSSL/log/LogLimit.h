// The size at which the log file is rotated.
#pragma once

#include <cstdint>

namespace krOpenSSL {

inline constexpr std::uint32_t kDefaultLogLimitBytes = 26'214'400; // 25 MiB

/// The limit in bytes that a text with a number of MiB stands for: at most 4094 MiB, the default for
/// anything below 1. Read as the C library's decimal conversion reads it, except that no number is too big.
std::uint32_t logLimitFrom(const char *text) noexcept;

/// The limit that the machine's settings ask for, now.
std::uint32_t readLogLimit() noexcept;

} // namespace krOpenSSL
