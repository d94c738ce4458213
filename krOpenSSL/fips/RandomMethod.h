// Which random method OpenSSL draws from after an engine load.
#pragma once

namespace krOpenSSL {

/// OpenSSL keeps the random method that it chose first, whatever is registered later. Has it choose anew when
/// that one came from an engine that the library loads, or is OpenSSL's own for want of an engine; a method that
/// the host installed, or had OpenSSL choose before the library came, stays.
void renewRandomMethod() noexcept;

} // namespace krOpenSSL
