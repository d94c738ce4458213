// The console trace: one line per call on the standard output of the host process.
#pragma once

namespace krOpenSSL {

/// The module tag that every caller of krTraceLog passes.
inline constexpr const char *kTraceTag = "krOpenSSL";

} // namespace krOpenSSL

/// Prints the tag, a blank, the formatted message and a line break, in one call to the stream, so
/// that lines of several threads stay whole. Takes no lock of its own and does not flush.
///
/// Tag, blank, format and line break have to fit into 2047 bytes; the formatted line may be longer. A
/// longer format is refused, since cutting it could split a conversion.
///
/// @return the number of characters printed, or a negative number on failure
[[gnu::format(printf, 2, 3)]] int krTraceLog(const char *tag, const char *format, ...) noexcept;

namespace krOpenSSL {

/// Prints what krTraceLog(kTraceTag, "step - accessor") would print, without reading a format: two of these lines
/// surround each traced call.
void traceStep(const char *step, const char *accessor) noexcept;

} // namespace krOpenSSL
