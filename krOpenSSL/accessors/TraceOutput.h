// What the trace asks the operating system. It asks for itself: platform/ is a neighbour.
#pragma once

namespace krOpenSSL {

/// Whether the environment says KR_TRACE=off. A process with more rights than its user's does not listen to it.
bool traceIsTurnedOff() noexcept;

/// Whether the process has a standard output.
bool standardOutputIsOpen() noexcept;

} // namespace krOpenSSL
