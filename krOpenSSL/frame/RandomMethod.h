// Which random method OpenSSL draws from after an engine load.
#pragma once

namespace krOpenSSL {

/// OpenSSL keeps the random method that it chose first, whatever is registered later. Has it choose anew when
/// that one came from an engine that the library loads and the active engine brings one; a method that the
/// host installed stays.
void renewRandomMethod() noexcept;

} // namespace krOpenSSL
