// What OpenSSL initialises once: some locks and tables, each by an allocation that must not fail. They are served
// from a reserve, by a function that stands before OpenSSL's allocating one meanwhile, where OpenSSL lets it: when the
// host has a function of its own in place, or OpenSSL has not allocated yet. Otherwise the reserve is given back to the
// system just before. What is taken from the reserve is as good as what that function allocates, so OpenSSL's other two
// memory functions stay what they are.
#include "engine/OnceOnly.h"

#include "accessors/ForksWait.h"
#ifdef _WIN32
#include "platform/Platform.h"
#endif

#include <krOpenSSL/krHandles.h>

#include <openssl/crypto.h>
#include <openssl/err.h>
#include <openssl/objects.h>
#include <openssl/rand.h>
#include <openssl/ssl.h>

#include <array>
#include <atomic>
#include <cstdlib>

namespace krOpenSSL {
namespace {

constexpr std::size_t kBlocks = OPENSSL_VERSION_NUMBER < 0x30000000L ? 20 : 96; // OpenSSL takes 15; 3.0 some 60
constexpr std::size_t kBlockBytes = 256;

using Allocate = void *(std::size_t, const char *, int);

constinit std::atomic<Allocate *> hosts{nullptr};
constinit std::array<void *, kBlocks> reserve{};
constinit std::size_t reserved = 0;

// Whether this thread is the one that the reserve is for. On Windows without data of its own for each thread, which
// the DLL would have to be told of.
#ifdef _WIN32
constinit std::atomic<std::uint32_t> reserveUser{0};
void useReserve(bool use) noexcept { reserveUser.store(use ? platform::threadId() : 0); }
bool usesReserve() noexcept { return reserveUser.load() == platform::threadId(); }
#else
constinit thread_local bool reserveUser = false;
void useReserve(bool use) noexcept { reserveUser = use; }
bool usesReserve() noexcept { return reserveUser; }
#endif

Allocate *inForce() noexcept {
  Allocate *found = nullptr;
  CRYPTO_get_mem_functions(&found, nullptr, nullptr);
  return found;
}

bool enforce(Allocate *function) noexcept { return CRYPTO_set_mem_functions(function, nullptr, nullptr) != 0; }

// What OpenSSL's own function would do, which asks the stand-in.
void *allocateAsHost(std::size_t size, const char *file, int line) {
  Allocate *const function = hosts.load();
  if (function != CRYPTO_malloc) {
    return function(size, file, line);
  }
  return size != 0 ? std::malloc(size) : nullptr;
}

void *standIn(std::size_t size, const char *file, int line) {
  if (usesReserve() && size != 0 && size <= kBlockBytes && reserved != 0) {
    return reserve.at(--reserved);
  }
  return allocateAsHost(size, file, line);
}

void emptyReserve() noexcept {
  while (reserved != 0) {
    OPENSSL_free(reserve.at(--reserved));
  }
}

bool fillReserve() noexcept {
  while (reserved != kBlocks) {
    void *block = allocateAsHost(kBlockBytes, __FILE__, __LINE__);
    if (block == nullptr) {
      emptyReserve();
      return false;
    }
    reserve.at(reserved++) = block;
  }
  return true;
}

// The order is that of need: the error strings' tables before anything that reports an error.
bool runAll() noexcept {
  if (OPENSSL_init_crypto(OPENSSL_INIT_NO_ATEXIT, nullptr) == 0) {
    return false;
  }
  ERR_lib_error_string(0);
  OBJ_NAME_init();
  ENGINEPtr(ENGINE_get_first()).reset();
  CRYPTO_EX_DATA none{};
  CRYPTO_new_ex_data(CRYPTO_EX_INDEX_APP, nullptr, &none);
  CRYPTO_free_ex_data(CRYPTO_EX_INDEX_APP, nullptr, &none);
  SSL_get_ex_data_X509_STORE_CTX_idx();
  RAND_keep_random_devices_open(1); // as they are kept; unlike a look at the random method it has OpenSSL choose none
  return true;
}

bool runAllFromReserve() noexcept {
  // A child that a bare system call forked meanwhile finds the stand-in in force.
  if (Allocate *const found = inForce(); found != standIn) {
    hosts.store(found);
  }
  if (!fillReserve()) {
    return false;
  }
  const bool standsIn = enforce(standIn);
  if (!standsIn) {
    emptyReserve();
  }
  useReserve(true);
  const bool done = runAll();
  useReserve(false);
  if (standsIn) {
    (void)enforce(hosts.load());
    emptyReserve();
  }
  return done;
}

constinit std::atomic<bool> isDone{false};

} // namespace

bool initialiseOnce() noexcept {
  if (isDone.load(std::memory_order_acquire)) {
    return true;
  }
  const ForksWait wait(ForksWait::initialisation);
  const bool done = isDone.load(std::memory_order_relaxed) || runAllFromReserve();
  if (done) {
    // Long, and under a lock: the error queue's first use would do it where a fork may fall into it.
    OPENSSL_init_crypto(OPENSSL_INIT_NO_ATEXIT | OPENSSL_INIT_LOAD_CRYPTO_STRINGS, nullptr);
  }
  isDone.store(done, std::memory_order_release);
  return done;
}

} // namespace krOpenSSL
