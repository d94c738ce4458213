// What is done once in a process, while memory runs out: in a child for each allocation, which fails alone or with all
// that follow it.
#include "support/FipsHome.h"
#include "support/Trace.h"
#include "support/posix/Users.h"
#include "whole/Switches.h"

#include "engine/EngineList.h"
#include "engine/qvlibRand.h"

#include <krOpenSSL/krDelegation.h>
#include <krOpenSSL/krHandles.h>

#include <openssl/ssl.h>

#include <algorithm>
#include <tuple>

// Finds leaks, where the address sanitizer is there to look.
extern "C" [[gnu::weak]] int __lsan_do_recoverable_leak_check();

namespace {

using namespace krTest;
using allocations::Failing;

template <class Method> int offersOne(ENGINE * /*engine*/, Method **method, const int **ids, int /*id*/) {
  static const int kId = NID_rc4;
  if (method == nullptr) {
    *ids = &kId;
  }
  return method == nullptr ? 1 : 0;
}

// OpenSSL 1.1.1w leaks where making one of its tables of engines fails half-way.
void makeEngineTables() {
  const krOpenSSL::ENGINEPtr engine(ENGINE_new());
  ENGINE_set_RSA(engine.get(), RSA_get_default_method());
  ENGINE_set_DSA(engine.get(), DSA_get_default_method());
  ENGINE_set_EC(engine.get(), EC_KEY_get_default_method());
  ENGINE_set_DH(engine.get(), DH_get_default_method());
  ENGINE_set_RAND(engine.get(), RAND_OpenSSL());
  ENGINE_set_ciphers(engine.get(), offersOne<const EVP_CIPHER>);
  ENGINE_set_digests(engine.get(), offersOne<const EVP_MD>);
  ENGINE_set_pkey_meths(engine.get(), offersOne<EVP_PKEY_METHOD>);
  ENGINE_register_complete(engine.get());
  krOpenSSL::unregisterAlgorithms(engine.get(), ENGINE_unregister_EC);
  ENGINE_unregister_pkey_meths(engine.get());
}

// What OpenSSL does once and does not try again.
void prepareOpenSSL() {
  OPENSSL_init_ssl(OPENSSL_INIT_LOAD_CRYPTO_STRINGS | OPENSSL_INIT_NO_LOAD_CONFIG | OPENSSL_INIT_NO_ATEXIT, nullptr);
  OPENSSL_init_crypto(OPENSSL_INIT_ENGINE_DYNAMIC, nullptr);
  unsigned char byte = 0;
  RAND_OpenSSL()->bytes(&byte, 1);
  makeEngineTables();
  for (const auto *method : {TLS_server_method(), TLS_client_method()}) {
    krOpenSSL::SSLCtxPtr(SSL_CTX_new(method)).reset();
  }
}

bool makeIndexes() {
  bool made = true;
  for (const auto getter :
       {kropenssl_get_rsa_idx, kropenssl_get_dsa_idx, kropenssl_get_ecdsa_idx, kropenssl_get_ssl_ctx_idx}) {
    const int index = getter();
    EXPECT_GE(index, -1);
    made = made && index >= 0;
  }
  return made;
}

enum Outcome { nothingFailed, right, wrong };

Outcome outcomeOf(const std::function<bool()> &work, long n, Failing failing) {
  allocations::failNth(n, failing);
  const bool done = work();
  const bool failed = allocations::failed();
  allocations::failNth(0);
  EXPECT_TRUE(done || failed);
  EXPECT_TRUE(work());
  if (__lsan_do_recoverable_leak_check != nullptr) {
    EXPECT_EQ(__lsan_do_recoverable_leak_check(), 0);
  }
  return testing::Test::HasFailure() ? wrong : failed ? right : nothingFailed;
}

} // namespace

namespace {

// Of the allocations that only add a name or a text most are left out.
long nextOf(long n) { return n < 64 || n > 3800 ? n + 1 : n + 61; }

// What memory failed in is lost for good in none of OpenSSL's parts that the library stands on.
Outcome startAgain(int (*start)(), int (*stop)(), long n, Failing failing) {
  allocations::failNth(n, failing);
  start();
  const bool failed = allocations::failed();
  allocations::failNth(0);
  stop();
  EXPECT_EQ(krOSSLSetup(), 0);
  EXPECT_EQ(engines(), kOrdinary);
  EXPECT_EQ(RAND_get_rand_method(), &qvlib_rand_method);
  unsigned char byte = 0;
  EXPECT_EQ(RAND_bytes(&byte, 1), 1);
  EXPECT_TRUE(krOpenSSL::SSLCtxPtr(SSL_CTX_new(TLS_method())) || kOpenSSL3); // which loses some of its own for good
  return testing::Test::HasFailure() ? wrong : failed ? right : nothingFailed;
}

} // namespace

TEST(FirstTime, TheVeryFirstMayFailAnywhere) {
  for (const auto &[start, stop] :
       {std::pair(&krOSSLSetup, &krOSSLCleanup), std::pair(&krOpenSSLEngineLoad, &krOpenSSLEngineUnload)}) {
    for (const Failing failing : {Failing::one, Failing::onwards}) {
      int outcome = right;
      for (long n = 1; outcome == right; n = nextOf(n)) {
        outcome = inChild([=, start = start, stop = stop] {
          const Trace quiet;
          return startAgain(start, stop, n, failing);
        });
        ASSERT_TRUE(outcome == right || (outcome == nothingFailed && n > 1)) << n;
      }
    }
  }
}

TEST(FirstTime, MayFindOneOfTheMemoryFunctionsReplacedAlone) {
  EXPECT_EQ(right, inChild([] {
              CRYPTO_set_mem_functions(nullptr, CRYPTO_realloc, CRYPTO_free);
              return startAgain(krOpenSSLEngineLoad, krOpenSSLEngineUnload, 20, Failing::one);
            }));
}

TEST(FirstTime, FailsWholeAndIsTriedAgain) {
  const FipsHome home;
  prepareOpenSSL();
  const std::pair<const char *, std::function<bool()>> rows[]{
      {"set-up", setUp}, {"indexes", makeIndexes}, {"modes", switchModes}, {"bridge", loadBridge}};
  for (const auto &[name, work] : rows) {
    for (const Failing failing : {Failing::one, Failing::onwards}) {
      int outcome = right;
      for (int n = 1; outcome == right; ++n) {
        outcome = inChild([&work = work, n, failing] {
          const Trace quiet;
          return outcomeOf(work, n, failing);
        });
        ASSERT_TRUE(outcome == right || (outcome == nothingFailed && n > 1)) << name << " " << n;
      }
    }
  }
}
