// Byte strings that are wiped when they are freed: some of them hold decrypted key material.
#pragma once

#include <openssl/crypto.h>

#include <cstddef>
#include <memory>
#include <vector>

namespace delegated_tls {

template <class Element> struct WipingAllocator : std::allocator<Element> {
  WipingAllocator() = default;
  template <class Other> explicit WipingAllocator(const WipingAllocator<Other> & /*other*/) noexcept {}
  template <class Other> struct rebind { using other = WipingAllocator<Other>; };
  void deallocate(Element *elements, std::size_t count) noexcept {
    OPENSSL_cleanse(elements, count * sizeof(Element));
    std::allocator<Element>::deallocate(elements, count);
  }
};

using Bytes = std::vector<unsigned char, WipingAllocator<unsigned char>>;

} // namespace delegated_tls
