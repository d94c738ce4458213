// The thread's innermost call. In a file of its own, so that no function that calls a callback keeps its address.
#include "accessors/Recursion.h"

namespace krOpenSSL {
namespace {

constexpr int kDeepest = 8; // callbacks may come back for another padding of the same input

constinit thread_local RecursionWatch::Call innermost{};

} // namespace

RecursionWatch::RecursionWatch(const void *key, const void *input) noexcept : outer_(innermost) {
  const auto place = reinterpret_cast<std::uintptr_t>(this);
  const bool again = outer_.key == key && outer_.input == input && place < outer_.place;
  innermost = {key, input, place, again ? outer_.depth + 1 : 1};
  endless_ = innermost.depth > kDeepest;
}

RecursionWatch::~RecursionWatch() { innermost = outer_; }

} // namespace krOpenSSL
