// The log writer. Nothing is reported to the caller: a line that cannot be written is dropped.
#pragma once

#include <atomic>
#include <cstdint>

/// krLogWrite writes above 3 only. Nothing in the library raises it.
extern std::atomic<std::uint32_t> krLogThreshold;

/// Writes a line with the message taken literally; has the shape of wolfEngine's logging callback.
/// May be called from any thread, but not from a signal handler. A null message counts as empty.
void krLogLine(int level, int component, const char *message) noexcept;

/// Writes a line with the formatted message, if krLogThreshold is above 3; otherwise touches nothing.
///
/// @param file       path of the source that calls; its base name is written
/// @param component  name written before the message, or null for none
[[gnu::format(printf, 4, 5)]] void krLogWrite(const char *file, int line, const char *component, const char *format,
                                              ...) noexcept;
