// OpenSSL's allocations: counted, and one of them made to fail.
#pragma once

namespace krTest::allocations {

/// Puts the counting in place; false when OpenSSL has allocated already.
bool install() noexcept;

/// The blocks that OpenSSL holds now.
long outstanding() noexcept;

/// Has the @p n-th allocation from now on fail, counted from 1; 0 lets all succeed.
void failNth(long n) noexcept;

/// While it lives no allocation is the one that fails: for what stands outside the library.
struct Spared {
  Spared() noexcept;
  ~Spared();
  Spared(const Spared &) = delete;
  Spared &operator=(const Spared &) = delete;
};

/// Whether the allocation that was to fail has been asked for.
bool failed() noexcept;

} // namespace krTest::allocations
