// Which random method OpenSSL draws from after an engine load.
#pragma once

namespace krOpenSSL {

/// OpenSSL keeps the random method that it chose first, whatever is registered later. Has it choose anew when
/// that one came from an engine that the library loads. Any other stays.
void renewRandomMethod() noexcept;

/// The same when that one is OpenSSL's own: what OpenSSL fell back to at a first draw is not to outlive a switch of
/// the mode.
void dropBuiltInRandomMethod() noexcept;

} // namespace krOpenSSL
