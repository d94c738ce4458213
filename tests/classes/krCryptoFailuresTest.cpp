// krCrypto.hpp where the classes write nothing: each row is a way to that.
#include "state/State.h"
#include "support/ReferenceModule.h"
#include "support/Trace.h"

#include <krOpenSSL/krCrypto.hpp>
#include <krOpenSSL/krLifecycle.h>

#include <gtest/gtest.h>
#include <openssl/err.h>

namespace {

using namespace krOpenSSL;
using krTest::Trace;
namespace module = krTest::referenceModule;

const std::string kKey = "a key of 16 byte";

void enter() {
  module::moduleState = 1;
  state::fipsModule = &module::table;
  state::useOpenSSLFips = 0;
  state::fipsMode = 1;
}

struct Way {
  const char *name;
  void (*go)();
};
const Way kLosses[] = {
    {"the provider changed, without a module", [] { state::fipsModule = nullptr; }},
    {"the module is in its error state", [] { module::moduleState = 3; }},
};
const Way kChanges[] = {
    {"ordinary mode", [] { state::fipsMode = 0; }},
    {"the other provider", [] { state::useOpenSSLFips = 1; }},
    {"the module's error state", [] { module::moduleState = 3; }},
    {"no module", [] { state::fipsModule = nullptr; }},
};

} // namespace

TEST(CryptoFailures, WhatWritesNothingThrowsOrIsFalse) {
  const Trace quiet;
  const SecretArray<32> key;
  const auto keys = SealKeys<256>::random();
  const auto sealed = seal(keys, "text");
  const auto wrapped = wrapKey(key, key);
  for (const auto &[name, lose] : kLosses) {
    SCOPED_TRACE(name);
    enter();
    lose();
    EXPECT_THROW((void)mac<kroSHA256>(kKey, "data"), CryptoError);
    EXPECT_THROW((void)Mac<kroSHA256>(kKey).final(), CryptoError);
    for (const unsigned value : {0x00U, unsigned{detail::kFill}, unsigned{detail::kOtherFill}, 0xFFU}) { // forged
      const std::vector<unsigned char> tag(32, static_cast<unsigned char>(value));
      EXPECT_FALSE(verifyMac<kroSHA256>(kKey, "data", tag));
      EXPECT_FALSE(Mac<kroSHA256>(kKey).verify(tag));
    }
    EXPECT_THROW((void)seal(keys, "text"), CryptoError);
    EXPECT_THROW((void)open(keys, sealed), CryptoError);
    EXPECT_THROW((void)wrapKey(key, key), CryptoError);
    EXPECT_THROW((void)unwrapKey(key, wrapped), CryptoError); // not: damaged
  }
  state::fipsMode = 0;
  EXPECT_TRUE(open(keys, sealed) && unwrapKey(key, wrapped));
  ERR_clear_error();
}

TEST(CryptoFailures, ABridgeWithoutAModuleEncryptsNothing) {
  const Trace quiet;
  const SecretArray<32> key;
  const SecretArray<16> iv;
  const auto encrypted = encryptCbc<256>(key, iv, "plain");
  enter();
  state::fipsModule = nullptr;
  ASSERT_EQ(krOpenSSLEngineLoad(), 1);
  std::vector<unsigned char> out;
  EXPECT_THROW(detail::appendEncrypted<256>(out, key, iv, "plain"), CryptoError);
  EXPECT_EQ(out, std::vector<unsigned char>(16)); // no plain text
  EXPECT_THROW((void)encryptCbc<256>(key, iv, "plain"), CryptoError);
  EXPECT_THROW((void)decryptCbc<256>(key, iv, encrypted), CryptoError);
  EXPECT_THROW((void)digest<kroSHA256>("data"), CryptoError);
  EXPECT_THROW((void)Digest<kroSHA256>().final(), CryptoError);
  krOpenSSLEngineUnload();
  ERR_clear_error();
}

TEST(CryptoFailures, InFipsModeDamageIsDamageAndAKeyThatModulesRefuseIsNone) {
  const Trace quiet;
  const SecretArray<32> key;
  enter();
  auto wrapped = wrapKey(key, key);
  EXPECT_TRUE(unwrapKey(key, wrapped));
  wrapped[0] ^= 1;
  EXPECT_FALSE(unwrapKey(key, wrapped));
  EXPECT_THROW((void)mac<kroSHA256>("13 bytes long", "data"), CryptoError);
  ERR_clear_error();
}

TEST(CryptoFailures, AMacWithoutWhatAModuleWasNotReadyForNeverComesOut) {
  const Trace quiet;
  const auto *const key = reinterpret_cast<const unsigned char *>(kKey.data());
  for (const bool withoutKey : {true, false}) {
    enter();
    kroHMAC<kroSHA256> hmac;
    hmac.Init();
    module::moduleState = withoutKey ? 3 : 1;
    hmac.SetKey(key, kKey.size());
    module::moduleState = withoutKey ? 1 : 3;
    hmac.Update(key, kKey.size());
    module::moduleState = 1;
    std::array<unsigned char, 32> out{};
    hmac.Final(out.data());
    EXPECT_EQ(out, (std::array<unsigned char, 32>{})) << withoutKey;
  }
}

TEST(CryptoFailures, AnObjectEndsWithTheModeThatItWasMadeIn) {
  const Trace quiet;
  for (const auto &[name, change] : kChanges) {
    SCOPED_TRACE(name);
    enter();
    Mac<kroSHA256> mac(kKey);
    Mac<kroSHA256> another(kKey);
    Digest<kroSHA256> sum;
    change();
    EXPECT_THROW(mac.update("data"), CryptoError);
    EXPECT_THROW(sum.update("data"), CryptoError);
    EXPECT_FALSE(another.verify(std::vector<unsigned char>(32)));
    enter(); // too late: something is missing
    EXPECT_THROW((void)mac.final(), CryptoError);
    EXPECT_THROW((void)sum.final(), CryptoError);
    EXPECT_THROW((void)another.final(), CryptoError);
  }
  ERR_clear_error();
}
