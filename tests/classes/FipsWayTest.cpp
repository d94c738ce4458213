// HMAC and key wrap through the external FIPS module.
#include "state/State.h"
#include "support/Digests.h"
#include "support/ReferenceModule.h"
#include "support/Trace.h"
#include "support/Vectors.h"

#include <krOpenSSL/krFips.h>
#include <krOpenSSL/kroAESWrap.h>

#include <gtest/gtest.h>
#include <openssl/err.h>

namespace {

using namespace krTest;
namespace module = krTest::referenceModule;
namespace state = krOpenSSL::state;

const Bytes kData{1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16};

void enterFipsMode() {
  state::fipsModule = &module::table;
  state::fipsMode = 1;
}

template <class HMAC> Bytes mac(HMAC &hmac) {
  Bytes out(64, 0xEE);
  hmac(kData.data(), 6, kData.data() + 6, 7, out.data());
  return out;
}

} // namespace

TEST(FipsWay, HmacIsTheModules) {
  enterFipsMode();
  forEachDigest([]<class T>(const DigestRow<T> &row) {
    Bytes digest(64, 0xEE);
    {
      const Trace quiet;
      kroHMAC<T> hmac;
      T()(digest.data(), kData.data(), 13); // what it takes for a MAC
      Bytes out(64);
      hmac.Init();
      hmac.SetKey(kData.data(), 5);
      hmac.Update(kData.data(), 0x80000000); // refused, and with it the MAC
      hmac.Final(out.data());
      hmac.Init();
      hmac.Final(out.data());
      hmac.SetKey(kData.data(), 1ULL << 32U); // no key any more
      hmac.Init();
      hmac.Update(kData.data(), 5);
      hmac.Final(out.data());
      EXPECT_EQ(mac(hmac) == digest, row.inFipsMode) << row.name;
    }
    const char *calls = row.inFipsMode ? "HmacInit HmacSetKey HmacInit HmacFinal HmacInit "
                                         "HmacInit HmacSetKey HmacUpdate HmacFinal HmacFree"
                                       : "";
    EXPECT_EQ(module::calls("Hmac"), calls);
  });
}

TEST(FipsWay, KeyWrapIsTheModules) {
  const Trace quiet;
  kroAESWrap ordinary;
  enterFipsMode();
  kroAESWrap wrap;
  for (const std::uint64_t length : {16U, 192U}) { // bytes to 32, bits beyond
    for (const unsigned char *iv : {static_cast<const unsigned char *>(nullptr), kData.data() + 1}) {
      Bytes expected(24);
      Bytes out(24);
      const Bytes key(24, 0x4b);
      ordinary.SetEncryptKey(key.data(), length);
      wrap.SetEncryptKey(key.data(), length);
      EXPECT_TRUE(ordinary.Encrypt(expected.data(), kData.data(), 16, iv));
      EXPECT_TRUE(wrap.Encrypt(out.data(), kData.data(), 16, iv));
      EXPECT_EQ(out, expected);
      wrap.SetDecryptKey(key.data(), length);
      EXPECT_TRUE(wrap.Decrypt(out.data(), 16, expected.data(), iv));
      out.resize(16);
      EXPECT_EQ(out, kData);
      expected.back() ^= 1;
      EXPECT_FALSE(wrap.Decrypt(out.data(), 16, expected.data(), iv));
    }
  }
  module::failing = "AesKeyWrap";
  EXPECT_FALSE(wrap.Encrypt(Bytes(24).data(), kData.data(), 16, nullptr));
  ERR_clear_error();
}

TEST(FipsWay, AModuleThatIsNotReadyIsNotCalled) {
  for (const auto spoil :
       {+[] { module::moduleState = 3; }, +[] { state::fipsModule = nullptr; }, +[] { state::fipsMode = 0; }}) {
    enterFipsMode();
    {
      kroHMAC<kroSHA256> hmac;
      kroAESWrap wrap;
      spoil();
      mac(hmac);
      wrap.SetEncryptKey(kData.data(), 16);
      wrap.SetDecryptKey(kData.data(), 16);
      EXPECT_FALSE(wrap.Encrypt(Bytes(24).data(), kData.data(), 16, nullptr));
      EXPECT_FALSE(wrap.Decrypt(Bytes(16).data(), 16, Bytes(24).data(), nullptr));
    }
    const std::string calls = module::calls();
    EXPECT_TRUE(calls.find("Hmac") == std::string::npos && calls.find("Aes") == std::string::npos) << calls;
    module::moduleState = 1;
  }
}

TEST(FipsWay, IsChosenAtConstructionAndGoesWithCopies) {
  {
    const Trace quiet;
    kroHMAC<kroSHA256> ordinary;
    enterFipsMode();
    state::useOpenSSLFips = 1; // FIPS mode inside OpenSSL
    kroHMAC<kroSHA256> inOpenSSL;
    kroAESWrap wrap;
    EXPECT_TRUE(krFipsMode() == 1 && krFipsUsingOpenSSLFIPS() == 1 && kroAESWrap::Validate());
    state::useOpenSSLFips = 0;
    EXPECT_EQ(mac(ordinary), mac(inOpenSSL));
    EXPECT_EQ(module::calls(), "");
    kroHMAC<kroSHA256> viaModule;
    ordinary = viaModule; // each takes the other's way, with what it held released
    viaModule = inOpenSSL;
    wrap = kroAESWrap();
    ordinary.Init();
    viaModule.Init();
  }
  EXPECT_EQ(module::calls(), "GetState HmacFree GetState AesFree GetState HmacInit GetState AesFree GetState HmacFree");
}
