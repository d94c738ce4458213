// A callback that runs into itself.
#pragma once

#include <cstdint>

namespace krOpenSSL {

/// Watches one call of a callback for a key and an input. With OpenSSL 3 a callback that signs with a key that OpenSSL
/// read after the set-up comes back to itself, with the same object and input, until the stack overflows.
///
/// Waiting fibres of one thread may end in any order and leave an older call behind as the innermost one: so it takes
/// several calls, each deeper in the stack than the one before.
class RecursionWatch {
public:
  RecursionWatch(const void *key, const void *input) noexcept;
  ~RecursionWatch();
  RecursionWatch(const RecursionWatch &) = delete;
  RecursionWatch &operator=(const RecursionWatch &) = delete;

  /// Whether the callback has come back to itself too often to end.
  bool isEndless() const noexcept { return endless_; }

  /// What is remembered of the innermost call. Nothing in it is followed.
  struct Call {
    const void *key;
    const void *input;
    std::uintptr_t place; ///< in the stack, which grows downwards
    int depth;
  };

private:
  Call outer_;
  bool endless_;
};

} // namespace krOpenSSL
