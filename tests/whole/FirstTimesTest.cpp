// What is done once in a process, while memory runs out: in a child for each allocation, which fails alone or with all
// that follow it.
#include "support/FipsHome.h"
#include "support/Keys.h"
#include "support/posix/Users.h"
#include "whole/Switches.h"

#include "engine/qvlibRand.h"

#include <krOpenSSL/krDelegation.h>
#include <krOpenSSL/krHandles.h>

#include <openssl/ssl.h>

#include <algorithm>

namespace {

using namespace krTest;
using allocations::Failing;

enum Outcome { nothingFailed, right, wrong };

Outcome outcome(bool failed) { return testing::Test::HasFailure() ? wrong : failed ? right : nothingFailed; }

void inChildren(const std::string &name, const std::function<Outcome(long, Failing)> &run, long (*next)(long)) {
  for (const Failing failing : {Failing::one, Failing::onwards}) {
    int found = right;
    for (long n = 1; found == right; n = next(n)) {
      found = inChild([&] { return run(n, failing); });
      ASSERT_TRUE(found == right || (found == nothingFailed && n > 1)) << name << " " << n;
    }
  }
}

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
  return outcome(failed);
}

// What OpenSSL does once and does not try again.
void prepareOpenSSL() {
  OPENSSL_init_ssl(OPENSSL_INIT_LOAD_CRYPTO_STRINGS | OPENSSL_INIT_NO_LOAD_CONFIG | OPENSSL_INIT_NO_ATEXIT, nullptr);
  OPENSSL_init_crypto(OPENSSL_INIT_ENGINE_DYNAMIC, nullptr);
  unsigned char byte = 0;
  RAND_OpenSSL()->bytes(&byte, 1);
  for (const auto *method : {TLS_server_method(), TLS_client_method()}) {
    krOpenSSL::SSLCtxPtr(SSL_CTX_new(method)).reset();
  }
}

bool makeIndexes() {
  const std::array indexes{kropenssl_get_rsa_idx(), kropenssl_get_dsa_idx(), kropenssl_get_ecdsa_idx(),
                           kropenssl_get_ssl_ctx_idx()};
  EXPECT_GE(*std::ranges::min_element(indexes), -1);
  return *std::ranges::min_element(indexes) >= 0;
}

Outcome workAgain(bool (*work)(), long n, Failing failing) {
  allocations::failNth(n, failing);
  const bool done = work();
  const bool failed = allocations::failed();
  allocations::failNth(0);
  EXPECT_TRUE(done || failed);
  EXPECT_TRUE(work());
  return outcome(failed);
}

} // namespace

TEST(FirstTime, TheVeryFirstMayFailAnywhere) {
  // Of the allocations that only add a name or a text most are left out.
  const auto next = [](long n) { return n < 64 || (n > 3800 && !kOpenSSL3) ? n + 1 : n + 61; };
  inChildren("set-up", std::bind_front(startAgain, krOSSLSetup, krOSSLCleanup), next);
  inChildren("load", std::bind_front(startAgain, krOpenSSLEngineLoad, krOpenSSLEngineUnload), next);
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
  const std::pair<const char *, bool (*)()> rows[]{
      {"set-up", setUp}, {"indexes", makeIndexes}, {"modes", switchModes}, {"bridge", loadBridge}};
  for (const auto &[name, work] : rows) {
    inChildren(name, std::bind_front(workAgain, work), [](long n) { return n + 1; });
  }
}
