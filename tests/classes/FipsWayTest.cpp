// HMAC and key wrap through the external FIPS module.
#include "state/State.h"
#include "support/Digests.h"
#include "support/ReferenceModule.h"
#include "support/Vectors.h"

#include <krOpenSSL/krFips.h>
#include <krOpenSSL/kroAESWrap.h>

#include <gtest/gtest.h>
#include <openssl/err.h>

#include <algorithm>
#include <array>
#include <memory>
#include <new>

namespace {

using namespace krTest;
namespace module = krTest::referenceModule;
namespace state = krOpenSSL::state;

const Bytes kData{1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16};

void enterFipsMode() {
  module::moduleState = 1;
  state::fipsModule = &module::table;
  state::fipsMode = 1;
}

void (*const kSpoils[])() = {[] { module::moduleState = 3; }, [] { state::fipsModule = nullptr; },
                             [] { state::fipsMode = 0; }};

// Whether the place of an object that had a key when the module was lost is wiped, with the object or by another way.
template <class Object> bool leavesNothing(void (*lose)(), void (*setKey)(Object &)) {
  state::fipsMode = 0;
  const Object ordinary;
  bool wiped = true;
  for (const bool copiedOver : {false, true}) {
    alignas(Object) std::array<unsigned char, sizeof(Object)> place;
    enterFipsMode();
    auto *object = new (place.data()) Object;
    setKey(*object);
    lose();
    *object = copiedOver ? ordinary : *object;
    std::destroy_at(object);
    const auto behindAPointer = place.begin() + 2 * sizeof(void *);
    wiped = wiped && std::all_of(behindAPointer, place.end(), [](auto byte) { return byte == 0; });
  }
  return wiped;
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
      kroHMAC<T> hmac;
      T()(digest.data(), kData.data(), 13); // what it takes for a MAC
      Bytes out(64);
      std::string calls;
      for (const auto refused : {+[](kroHMAC<T> &object) { object.Update(kData.data(), 0x80000000); },
                                 +[](kroHMAC<T> &object) { object.Update(nullptr, 1); },
                                 +[](kroHMAC<T> &object) { object.Final(nullptr); }}) {
        hmac.Init();
        hmac.SetKey(kData.data(), 5);
        refused(hmac); // and with it the MAC
        hmac.Final(out.data());
        hmac.Init();
        hmac.Final(out.data());
        calls += "HmacInit HmacSetKey HmacInit HmacFinal ";
      }
      for (const auto &[key, length] : {std::pair(kData.data(), 1ULL << 32U), {nullptr, 1}}) {
        hmac.SetKey(key, length); // no key any more
        hmac.Init();
        hmac.Update(kData.data(), 5);
        hmac.Final(out.data());
        calls += "HmacInit ";
      }
      EXPECT_EQ(mac(hmac) == digest, row.inFipsMode) << row.name;
      hmac.SetKey(nullptr, 0);
      calls += "HmacInit HmacSetKey HmacUpdate HmacFinal HmacSetKey";
      EXPECT_EQ(module::calls("Hmac"), row.inFipsMode ? calls : "");
    }
    EXPECT_EQ(module::calls("Hmac"), row.inFipsMode ? "HmacFree" : "");
  });
}

TEST(FipsWay, KeyWrapIsTheModules) {
  kroAESWrap ordinary;
  enterFipsMode();
  kroAESWrap wrap;
  for (const std::uint64_t length : {16U, 32U, 192U}) { // bytes to 32, bits beyond
    for (const unsigned char *iv : {static_cast<const unsigned char *>(nullptr), kData.data() + 1}) {
      Bytes expected(24);
      Bytes out(24);
      const Bytes key(32, 0x4b);
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
  wrap.SetEncryptKey(kData.data(), 16);
  EXPECT_FALSE(wrap.Encrypt(Bytes(24).data(), kData.data(), 16, nullptr));
  ERR_clear_error();
}

TEST(FipsWay, KeyWrapRefusesNullsAndTheOtherDirectionItself) {
  enterFipsMode();
  kroAESWrap wrap;
  Bytes out(24);
  const auto wraps = [&] { return wrap.Encrypt(out.data(), kData.data(), 16, nullptr); };
  const auto unwraps = [&] { return wrap.Decrypt(out.data(), 8, kData.data(), nullptr); };
  EXPECT_FALSE(wraps());
  EXPECT_EQ(module::calls("Aes"), "AesKeyWrap"); // no key is the module's to judge
  wrap.SetDecryptKey(kData.data(), 16);
  EXPECT_FALSE(wraps());
  EXPECT_FALSE(wrap.Decrypt(nullptr, 8, kData.data(), nullptr));
  EXPECT_FALSE(wrap.Decrypt(out.data(), 8, nullptr, nullptr));
  wrap.SetEncryptKey(kData.data(), 16);
  EXPECT_FALSE(kroAESWrap(wrap).Decrypt(out.data(), 8, kData.data(), nullptr));
  EXPECT_FALSE(wrap.Encrypt(nullptr, kData.data(), 16, nullptr));
  EXPECT_FALSE(wrap.Encrypt(out.data(), nullptr, 16, nullptr));
  for (const auto set : {&kroAESWrap::SetEncryptKey, &kroAESWrap::SetDecryptKey}) {
    (wrap.*set)(nullptr, 16); // and the key is gone
    EXPECT_FALSE(wraps());
    EXPECT_FALSE(unwraps());
  }
  EXPECT_EQ(module::calls("Aes"), "AesSetDecryptKey AesSetEncryptKey AesFree");
}

TEST(FipsWay, AModuleThatIsNotReadyIsNotCalled) {
  for (const auto spoil : kSpoils) {
    EXPECT_TRUE(leavesNothing<kroHMAC<kroSHA256>>(spoil, [](auto &hmac) { hmac.SetKey(kData.data(), 16); }));
    EXPECT_TRUE(leavesNothing<kroAESWrap>(spoil, [](auto &wrap) { wrap.SetEncryptKey(kData.data(), 16); }));
    module::calls();
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
    EXPECT_EQ(calls.find("Hmac"), std::string::npos) << calls;
    EXPECT_EQ(calls.find("Aes"), std::string::npos) << calls;
  }
}

TEST(FipsWay, IsChosenAtConstructionAndGoesWithCopies) {
  {
    kroHMAC<kroSHA256> ordinary;
    enterFipsMode();
    state::useOpenSSLFips = 1; // FIPS mode inside OpenSSL
    kroHMAC<kroSHA256> inOpenSSL;
    kroAESWrap wrap;
    EXPECT_TRUE(kroAESWrap::Validate());
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
