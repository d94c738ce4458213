// Allocations: OpenSSL's counted, and one of them, or of the program's own, made to fail.
#pragma once

namespace krTest::allocations {

/// Puts the counting in place; false when OpenSSL has allocated already.
bool install() noexcept;

/// The blocks that OpenSSL holds now.
long outstanding() noexcept;

/// Which allocations fail: the n-th alone, or those that follow it as well.
enum class Failing { one, onwards };

/// Has the @p n-th allocation from now on fail, counted from 1; 0 lets all succeed.
void failNth(long n, Failing failing = Failing::one) noexcept;

/// Counts an allocation: whether it is to fail. For allocations that OpenSSL does not make; see OperatorNew.cpp.
bool refuses() noexcept;

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
