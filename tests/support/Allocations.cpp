// Memory functions for OpenSSL that count its blocks and refuse one when they are told to.
#include "support/Allocations.h"

#include <openssl/crypto.h>

#include <atomic>
#include <cstdlib>

namespace krTest::allocations {
namespace {

constinit std::atomic<long> blocks{0};
constinit std::atomic<long> untilFailure{0};
constinit std::atomic<bool> failsOnwards{false};
constinit std::atomic<int> sparing{0};

void release(void *block, const char * /*file*/, int /*line*/) {
  blocks -= block != nullptr ? 1 : 0;
  std::free(block);
}

void *resize(void *block, std::size_t size, const char *file, int line) {
  if (size == 0) {
    release(block, file, line);
    return nullptr;
  }
  if (refuses()) {
    return nullptr;
  }
  void *resized = std::realloc(block, size);
  blocks += block == nullptr && resized != nullptr ? 1 : 0;
  return resized;
}

void *allocate(std::size_t size, const char *file, int line) { return resize(nullptr, size, file, line); }

} // namespace

bool install() noexcept { return CRYPTO_set_mem_functions(allocate, resize, release) != 0; }
long outstanding() noexcept { return blocks; }
void failNth(long n, Failing failing) noexcept {
  failsOnwards = n > 0 && failing == Failing::onwards;
  untilFailure = n;
}
bool refuses() noexcept {
  if (sparing != 0) {
    return false;
  }
  return untilFailure > 0 ? --untilFailure == 0 : failsOnwards.load();
}
Spared::Spared() noexcept { ++sparing; }
Spared::~Spared() { --sparing; }
bool failed() noexcept { return untilFailure == 0; }

} // namespace krTest::allocations
