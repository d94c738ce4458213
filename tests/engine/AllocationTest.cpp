// Any allocation may fail: what cannot be done is refused, nothing leaks, and all works again afterwards.
#include "support/Sweep.h"

#include "engine/qvlib.h"
#include "support/Provider.h"
#include "support/Trace.h"

#include <krOpenSSL/krLifecycle.h>

#include <gtest/gtest.h>
#include <openssl/err.h>
#include <sys/wait.h>
#include <unistd.h>

#include <functional>

namespace {

using namespace krTest;

const Bytes kDigest(32, 0x2b);

void bindOnce() {
  if (ENGINE *engine = ENGINE_new(); engine != nullptr && qvlib_bind(engine) != 0) {
    EXPECT_TRUE(ENGINE_get_RSA(engine) != nullptr && ENGINE_get_DSA(engine) != nullptr);
    ENGINE_free(engine);
  }
}

void reload() {
  krOpenSSLEngineUnload();
  EXPECT_EQ(krOpenSSLEngineLoad(), 1); // the first engine is listed still
}

// Whether a set-up whose n-th allocation fails ends without a look for a module in place of the engine.
bool setsUpOrFails(long n) {
  const Trace quiet;
  allocations::failNth(n);
  krOSSLSetup();
  bool searched = false;
  while (const unsigned long code = ERR_get_error()) {
    searched = searched || (ERR_GET_LIB(code) == ERR_LIB_ENGINE && ERR_GET_REASON(code) == ENGINE_R_NO_SUCH_ENGINE);
  }
  krOSSLCleanup();
  return !searched;
}

} // namespace

TEST(Allocation, AnEngineIsBuiltWholeOrNotAtAll) { sweep(bindOnce, bindOnce); }

TEST(Allocation, AReloadRegistersTheFirstEngine) {
  const Trace quiet;
  krOpenSSLEngineLoad();
  sweep(reload, reload);
}

// In a child for each allocation, since OpenSSL does not try again what it does once.
TEST(Allocation, ASetupSurvivesAndLooksForNoModuleInPlaceOfItsEngine) {
  enum Outcome { nothingFailed, right, wrong };
  // Thousands of allocations that are OpenSSL's own affair.
  OPENSSL_init_ssl(OPENSSL_INIT_LOAD_CRYPTO_STRINGS | OPENSSL_INIT_NO_LOAD_CONFIG | OPENSSL_INIT_NO_ATEXIT, nullptr);
  for (int outcome = right, n = 1; outcome != nothingFailed; ++n) {
    const pid_t child = fork();
    if (child == 0) {
      const bool survived = setsUpOrFails(n);
      _exit(!survived ? wrong : allocations::failed() ? right : nothingFailed);
    }
    waitpid(child, &outcome, 0);
    ASSERT_TRUE(WIFEXITED(outcome) && WEXITSTATUS(outcome) != wrong) << "allocation " << n;
    outcome = WEXITSTATUS(outcome);
  }
}

TEST(Allocation, SigningFailsCleanlyOnEveryPath) {
  const Library library;
  for (const Kind kind : {Kind::rsa, Kind::dsa, Kind::p256}) {
    EVP_PKEY *owner = softwareKey(kind);
    for (const bool viaProvider : {true, false}) {
      SCOPED_TRACE(testing::Message() << static_cast<int>(kind) << viaProvider);
      const Trace quiet;
      const EVPPKeyPtr key = wholeCopy(owner);
      if (RSA *rsa = EVP_PKEY_get0_RSA(key.get()); rsa != nullptr) {
        // OpenSSL 1.1.1w damages its blinding when an allocation fails half-way through an update of it.
        RSA_set_flags(rsa, RSA_FLAG_NO_BLINDING);
      }
      Connection connection(writes(signDigest(owner, kDigest)));
      attach(key.get(), viaProvider ? connection.ssl.get() : nullptr);
      Bytes signature;
      const auto sign = [&] { signature = signDigest(key.get(), kDigest); };
      sweep(sign, [&] {
        EXPECT_TRUE(signature.empty() || verifies(owner, kDigest, signature));
        sign();
        EXPECT_TRUE(verifies(owner, kDigest, signature));
      });
    }
  }
}
