// Set-up and clean-up by reference count.
#include <krOpenSSL/krHandles.h>
#include <krOpenSSL/krLifecycle.h>

#include "accessors/krTraceLog.h"
#include "engine/EngineList.h"
#include "fips/RandomMethod.h"
#include "frame/TlsAlgorithms.h"
#include "state/State.h"

#include <openssl/err.h>
#include <openssl/rand.h>
#include <openssl/ssl.h>

#include <atomic>
#include <cstdint>

using namespace krOpenSSL;

namespace {

// Users of OpenSSL. Not clamped at 0.
constinit std::atomic<std::int32_t> setupCount{0};

constexpr std::uint64_t kInitOptions = OPENSSL_INIT_LOAD_CRYPTO_STRINGS | OPENSSL_INIT_NO_LOAD_CONFIG |
                                       OPENSSL_INIT_NO_ATEXIT | OPENSSL_INIT_LOAD_SSL_STRINGS;
static_assert(kInitOptions == 0x280082);

// A throw-away context has OpenSSL load its cipher and digest tables now, not in the first handshake.
void makeContext(const SSL_METHOD *method) noexcept { SSLCtxPtr(SSL_CTX_new(method)).reset(); }

} // namespace

int krOSSLSetup() {
  if (setupCount.fetch_add(1) != 0) {
    return 0;
  }
  checkTraceOutput();
  if (!opensslIsUsable() || !listTlsAlgorithms() || OPENSSL_init_ssl(kInitOptions, nullptr) == 0) {
    noteMissedRandomMethod();
    krTraceLog(kTraceTag, "%s: Could not initialize OpenSSL", __func__);
    return 1;
  }
  krOpenSSLEngineLoad();
  RAND_seed(nullptr, 0);
  makeContext(TLS_server_method());
  makeContext(TLS_client_method());
  return 0;
}

int krOSSLCleanup() {
  if (setupCount.fetch_sub(1) != 1) {
    return 0;
  }
  krOpenSSLEngineUnload();
  // The decrypt callback stays until a new registration replaces it.
  state::rsaPrivateEncrypt.store(nullptr, std::memory_order_release);
  state::dsaSign.store(nullptr, std::memory_order_release);
  state::ecdsaSign.store(nullptr, std::memory_order_release);
  ERR_clear_error();
  return 0;
}
