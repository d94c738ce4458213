// An ex-data index of OpenSSL's.
#pragma once

#include <atomic>

namespace krOpenSSL {

/// Made at its first need, for the life of the process. Constant-initialised.
///
/// Without a lock, since OpenSSL may hold its own then, and a forked child is to find none taken: of two threads that
/// make an index, one makes a spare that nobody uses.
class ExDataIndex {
public:
  using Create = int (*)(int exClass, const char *label) noexcept;

  /// CRYPTO_get_ex_new_index without functions: OpenSSL neither copies nor frees what is stored.
  static int create(int exClass, const char *label) noexcept;

  constexpr ExDataIndex(int exClass, const char *label, Create how = create) noexcept
      : exClass_(exClass), label_(label), create_(how) {}

  /// -1 until it is made.
  int ifMade() const noexcept { return index_.load(std::memory_order_acquire); }

  /// The index; -1 when it could not be made, and the next call tries again.
  int get() noexcept;

private:
  std::atomic<int> index_{-1};
  int exClass_;
  const char *label_;
  Create create_;
};

} // namespace krOpenSSL
