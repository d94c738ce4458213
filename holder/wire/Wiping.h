// Bytes that are wiped before their memory is given back: a frame may hold a secret.
#pragma once

#include <cstring>
#include <memory>
#include <span>
#include <vector>

namespace krHolder {

template <class T> struct WipingAllocator {
  using value_type = T;

  WipingAllocator() = default;
  template <class U> constexpr WipingAllocator(const WipingAllocator<U> & /*other*/) noexcept {}

  T *allocate(std::size_t count) { return std::allocator<T>().allocate(count); }
  void deallocate(T *room, std::size_t count) noexcept {
    explicit_bzero(room, count * sizeof(T));
    std::allocator<T>().deallocate(room, count);
  }
  friend bool operator==(const WipingAllocator & /*one*/, const WipingAllocator & /*other*/) { return true; }
};

using Bytes = std::vector<unsigned char, WipingAllocator<unsigned char>>;
using View = std::span<const unsigned char>;

} // namespace krHolder
