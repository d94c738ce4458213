// Which random method OpenSSL draws from after an engine load.
#pragma once

namespace krOpenSSL {

/// OpenSSL keeps the random method that it chose first, whatever is registered later. Has it choose anew when
/// that one came from an engine that the library loads, or is what OpenSSL fell back to since a load failed. Any
/// other stays.
void renewRandomMethod() noexcept;

/// A load failed: what OpenSSL falls back to is not to outlive the next one.
void noteMissedRandomMethod() noexcept;

/// Has OpenSSL choose anew when its method is its own: what it fell back to at a first draw is not to outlive a
/// change of the mode.
void dropBuiltInRandomMethod() noexcept;

} // namespace krOpenSSL
