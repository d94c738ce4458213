// HMAC and key wrap through the external FIPS module, with a table that writes down its calls.
#include "fipsbridge/FipsModule.h"
#include "state/State.h"
#include "support/Digests.h"
#include "support/Trace.h"
#include "support/Vectors.h"

#include <krOpenSSL/krFips.h>
#include <krOpenSSL/kroAESWrap.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <sstream>

namespace {

using namespace krTest;
using krOpenSSL::FipsModule;
namespace state = krOpenSSL::state;

Lines calls;
int moduleState = 1;
int answer = 0;
const unsigned char kBytes[32]{1, 2, 3};
unsigned char out[32];

const char *nameOf(const void *pointer) {
  return pointer == krOpenSSL::fipsModuleContext ? "context"
         : pointer == kBytes                     ? "bytes"
         : pointer == out                        ? "out"
         : pointer == nullptr                    ? "null"
                                                 : "area";
}
std::string text(const void *pointer) { return nameOf(pointer); }
std::string text(FipsModule::Length length) { return std::to_string(length); }

/// An entry that notes its name and arguments, pointers by what they point to.
template <class... Arguments> int note(const char *name, Arguments... arguments) {
  std::string line = name;
  ((line += ' ' + text(arguments)), ...);
  calls.push_back(line);
  return answer;
}

const FipsModule kModule = [] {
  FipsModule module{};
  module.GetState = [] {
    calls.emplace_back("GetState");
    return moduleState;
  };
  module.HmacInit = [](auto... arguments) {
    const auto *area = static_cast<const unsigned char *>(std::get<1>(std::tuple(arguments...)));
    EXPECT_TRUE(std::all_of(area, area + 352, [](unsigned char byte) { return byte == 0; }));
    return note("HmacInit", arguments...);
  };
  module.HmacSetKey = [](auto... arguments) { return note("HmacSetKey", arguments...); };
  module.HmacUpdate = [](auto... arguments) { return note("HmacUpdate", arguments...); };
  module.HmacFinal = [](auto... arguments) { return note("HmacFinal", arguments...); };
  module.HmacFree = [](auto... arguments) { return note("HmacFree", arguments...); };
  module.AesSetEncryptKey = [](auto... arguments) { return note("AesSetEncryptKey", arguments...); };
  module.AesSetDecryptKey = [](auto... arguments) { return note("AesSetDecryptKey", arguments...); };
  module.AesFree = [](auto... arguments) { return note("AesFree", arguments...); };
  module.AesKeyWrap = [](auto... arguments) { return note("AesKeyWrap", arguments...); };
  module.AesKeyUnwrap = [](auto... arguments) { return note("AesKeyUnwrap", arguments...); };
  return module;
}();

// The calls since the last time, each with the readiness test before it left out.
Lines callsMade() {
  Lines made;
  for (std::size_t i = 0; i + 1 < calls.size(); i += 2) {
    EXPECT_EQ(calls[i], "GetState");
    made.push_back(calls[i + 1]);
  }
  EXPECT_EQ(calls.size(), 2 * made.size());
  calls.clear();
  return made;
}

void enterFipsMode() {
  state::fipsModule = &kModule;
  state::fipsMode = 1;
}

} // namespace

TEST(FipsWay, HmacHandsItsStepsToTheModule) {
  enterFipsMode();
  forEachDigest([]<class T>(const DigestRow<T> &row) {
    SCOPED_TRACE(row.name);
    {
      kroHMAC<T> hmac;
      hmac.Init();
      hmac.SetKey(kBytes, 5);
      hmac.Update(kBytes, 0x80000000); // refused, and with it the MAC
      hmac.Final(out);
      hmac.Init();
      hmac.Final(out);
      hmac.SetKey(kBytes, 1ULL << 32U); // no key any more
      hmac.Init();
      hmac.Update(kBytes, 5);
      hmac.Final(out);
      hmac(kBytes, 6, kBytes, 7, out);
    }
    const std::string init = "HmacInit context area 352 " + std::to_string(row.size);
    const Lines expected{init,
                         "HmacSetKey area bytes 5",
                         init,
                         "HmacFinal area out",
                         init,
                         init,
                         "HmacSetKey area bytes 6",
                         "HmacUpdate area bytes 7",
                         "HmacFinal area out",
                         "HmacFree area"};
    EXPECT_EQ(callsMade(), row.inFipsMode ? expected : Lines{});
  });
}

TEST(FipsWay, KeyWrapHandsItsStepsToTheModule) {
  enterFipsMode();
  {
    kroAESWrap wrap;
    for (const std::uint64_t length : {5U, 32U, 33U, 192U}) { // bytes to 32, bits beyond
      wrap.SetEncryptKey(kBytes, length);
    }
    wrap.SetDecryptKey(kBytes, 16);
    EXPECT_TRUE(wrap.Encrypt(out, kBytes, 3, nullptr));
    answer = 256;
    EXPECT_FALSE(wrap.Encrypt(out, kBytes, 16, kBytes));
    EXPECT_FALSE(wrap.Decrypt(out, 16, kBytes, nullptr));
    answer = 0;
    EXPECT_TRUE(wrap.Decrypt(out, 0, kBytes, kBytes));
  }
  const Lines expected{"AesSetEncryptKey context area 256 bytes 40",  "AesSetEncryptKey context area 256 bytes 256",
                       "AesSetEncryptKey context area 256 bytes 33",  "AesSetEncryptKey context area 256 bytes 192",
                       "AesSetDecryptKey context area 256 bytes 128", "AesKeyWrap area out bytes 3 null",
                       "AesKeyWrap area out bytes 16 bytes",          "AesKeyUnwrap area out 16 bytes null",
                       "AesKeyUnwrap area out 0 bytes bytes",         "AesFree area"};
  EXPECT_EQ(callsMade(), expected);
}

TEST(FipsWay, AModuleThatIsNotReadyIsNotCalled) {
  enterFipsMode();
  const std::pair<const char *, std::function<void()>> rows[] = {
      {"module in its error state", [] { moduleState = 3; }},
      {"no module", [] { state::fipsModule = nullptr; }},
      {"FIPS mode off", [] { state::fipsMode = 0; }},
  };
  for (const auto &[name, spoil] : rows) {
    SCOPED_TRACE(name);
    {
      kroHMAC<kroSHA256> hmac;
      kroAESWrap wrap;
      spoil();
      hmac(kBytes, 5, kBytes, 5, out);
      wrap.SetEncryptKey(kBytes, 16);
      wrap.SetDecryptKey(kBytes, 16);
      EXPECT_FALSE(wrap.Encrypt(out, kBytes, 16, nullptr));
      EXPECT_FALSE(wrap.Decrypt(out, 16, kBytes, nullptr));
    }
    EXPECT_EQ(std::count(calls.begin(), calls.end(), "GetState"), calls.size());
    calls.clear();
    moduleState = 1;
    enterFipsMode();
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
    ordinary(kBytes, 5, kBytes, 5, out);
    inOpenSSL(kBytes, 5, kBytes, 5, out);
    EXPECT_EQ(calls, Lines{});
    kroHMAC<kroSHA256> viaModule;
    ordinary = viaModule; // each takes the other's way, with what it held released
    viaModule = inOpenSSL;
    wrap = kroAESWrap();
    ordinary.Init();
    viaModule.Init();
  }
  EXPECT_EQ(callsMade(),
            (Lines{"HmacFree area", "AesFree area", "HmacInit context area 352 32", "AesFree area", "HmacFree area"}));
}

TEST(FipsWay, QueriesAnswerForTheModuleThatIsThere) {
  EXPECT_TRUE(krFipsMode() == 0 && krFipsModeError() == 0 && krFipsUsingOpenSSLFIPS() == 0);
  state::fipsModule = &kModule;
  for (moduleState = 0; moduleState < 5; ++moduleState) {
    EXPECT_EQ(krFipsModeError(), moduleState == 3 ? 1 : 0);
  }
}
