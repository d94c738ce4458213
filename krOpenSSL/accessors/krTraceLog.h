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
/// Prints nothing where the environment says KR_TRACE=off, or where the standard output was not open at the first
/// line or at a set-up: for the life of the process.
///
/// @return the number of characters printed, 0 where the trace is off, or a negative number on failure
[[gnu::format(printf, 2, 3)]] int krTraceLog(const char *tag, const char *format, ...) noexcept;

namespace krOpenSSL {

/// Turns the trace off where the standard output is not open. For the set-up, which comes before the connections that
/// might get its number.
void checkTraceOutput() noexcept;

/// Prints what krTraceLog(kTraceTag, "step - accessor") would print, without reading a format: two of these lines
/// surround each traced call.
void traceStep(const char *step, const char *accessor) noexcept;

/// Prints the lines of the steps Start and End at once.
void traceSteps(const char *accessor) noexcept;

} // namespace krOpenSSL
