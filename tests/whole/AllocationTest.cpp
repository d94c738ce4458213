// Any allocation may fail: what cannot be done is refused, nothing leaks, and all works again afterwards.
#include "support/Sweep.h"

#include "engine/qvlib.h"
#include "support/Provider.h"
#include "support/Trace.h"

#include <krOpenSSL/krLifecycle.h>

#include <gtest/gtest.h>

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

} // namespace

TEST(Allocation, AnEngineIsBuiltWholeOrNotAtAll) { sweep(bindOnce, bindOnce); }

TEST(Allocation, AReloadRegistersTheFirstEngine) {
  const Trace quiet;
  krOpenSSLEngineLoad();
  sweep(reload, reload);
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
