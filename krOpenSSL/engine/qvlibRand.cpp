// The random method over the process-wide generator.
//
// Everything here is constant-initialised and trivially destroyed, so that it serves OpenSSL's exit handler
// too, which may run when this library's static objects are gone.
#include "engine/qvlibRand.h"

#include "engine/GeneratorLock.h"
#include "platform/Platform.h"

#include <krOpenSSL/kroFipsRngSha1.h>

#include <openssl/crypto.h>

#include <array>
#include <atomic>
#include <new>

using namespace krOpenSSL;

namespace {

constexpr int kSeedBytes = 64;

// The generator is made in place at its first seeding, and used under the generator lock only.
alignas(kroFipsRngSha1) constinit std::array<unsigned char, sizeof(kroFipsRngSha1)> storage{};
constinit kroFipsRngSha1 *generator = nullptr;
constinit std::atomic<bool> seeded{false};

void makeGenerator() noexcept {
  OPENSSL_cleanse(storage.data(), storage.size());
  generator = new (storage.data()) kroFipsRngSha1;
}

bool initFromSystem() noexcept {
  std::array<unsigned char, kSeedBytes> seed;
  const bool drawn = platform::systemRandom(seed.data(), kSeedBytes);
  if (drawn) {
    generator->Init(seed.data(), kSeedBytes, nullptr);
  }
  OPENSSL_cleanse(seed.data(), seed.size());
  return drawn;
}

// A forked child starts over: with a new XKEY, and without the rest of its parent's block.
void renewIfCopied(GeneratorLock &lock) noexcept {
  if (lock.firstInChild() && generator != nullptr) {
    makeGenerator();
    seeded.store(seeded.load() && initFromSystem());
  }
}

void qvlib_rand_feed(GeneratorLock &lock, const unsigned char *buf, int num) noexcept {
  if (seeded.load()) {
    generator->Iterate(buf, static_cast<std::uint64_t>(num));
    return;
  }
  // Without notice of forks a child would repeat its parent's bytes: better none at all.
  if (!lock.noticesForks()) {
    return;
  }
  if (generator == nullptr) {
    makeGenerator();
  }
  if (num >= kSeedBytes) {
    generator->Init(buf, static_cast<std::uint64_t>(num), nullptr);
    seeded.store(true);
    return;
  }
  if (initFromSystem()) {
    if (buf != nullptr && num >= 1) {
      generator->Iterate(buf, static_cast<std::uint64_t>(num));
    }
    seeded.store(true);
  }
}

} // namespace

int qvlib_rand_seed(const void *buf, int num) noexcept {
  if (num < 0 || (buf == nullptr && num >= kSeedBytes)) {
    return 0;
  }
  GeneratorLock lock;
  renewIfCopied(lock);
  qvlib_rand_feed(lock, static_cast<const unsigned char *>(buf), num);
  return 0;
}

int qvlib_rand_bytes(unsigned char *buf, int num) noexcept {
  if (num < 0 || (buf == nullptr && num > 0)) {
    return 0;
  }
  for (;;) {
    GeneratorLock lock;
    renewIfCopied(lock);
    if (!seeded.load()) {
      qvlib_rand_feed(lock, nullptr, 0);
    }
    if (!seeded.load()) {
      return 0;
    }
    generator->Generate(buf, static_cast<std::uint64_t>(num), nullptr, 0);
    if (lock.release()) {
      return 1;
    }
  }
}

void qvlib_rand_cleanup() noexcept {
  const GeneratorLock lock;
  seeded.store(false);
}

int qvlib_rand_add(const void *buf, int num, double /*randomness*/) noexcept {
  if (num < 0) {
    return 0;
  }
  GeneratorLock lock;
  renewIfCopied(lock);
  if (seeded.load()) {
    generator->Iterate(static_cast<const unsigned char *>(buf), static_cast<std::uint64_t>(num));
  }
  return 0;
}

int qvlib_rand_status() noexcept { return seeded.load() ? 1 : 0; }

constinit const RAND_METHOD qvlib_rand_method{
    qvlib_rand_seed, qvlib_rand_bytes, qvlib_rand_cleanup, qvlib_rand_add, qvlib_rand_bytes, qvlib_rand_status,
};
