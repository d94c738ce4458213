// The C++ allocations of a program, the library's and its own, made to fail like OpenSSL's.
#include "support/Allocations.h"

#include <cstdlib>
#include <new>

namespace {

void *allocate(std::size_t size) noexcept {
  return krTest::allocations::refuses() ? nullptr : std::malloc(size != 0 ? size : 1);
}

void *allocateOrThrow(std::size_t size) {
  void *block = allocate(size);
  return block != nullptr ? block : throw std::bad_alloc();
}

} // namespace

// All of them: a sanitizer brings its own for those that are left.
void *operator new(std::size_t size) { return allocateOrThrow(size); }
void *operator new[](std::size_t size) { return allocateOrThrow(size); }
void *operator new(std::size_t size, const std::nothrow_t & /*tag*/) noexcept { return allocate(size); }
void *operator new[](std::size_t size, const std::nothrow_t & /*tag*/) noexcept { return allocate(size); }
void operator delete(void *block) noexcept { std::free(block); }
void operator delete[](void *block) noexcept { std::free(block); }
void operator delete(void *block, std::size_t /*size*/) noexcept { std::free(block); }
void operator delete[](void *block, std::size_t /*size*/) noexcept { std::free(block); }
void operator delete(void *block, const std::nothrow_t & /*tag*/) noexcept { std::free(block); }
void operator delete[](void *block, const std::nothrow_t & /*tag*/) noexcept { std::free(block); }
