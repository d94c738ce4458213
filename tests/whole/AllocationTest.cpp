// The library while memory runs out: each allocation, OpenSSL's or C++'s, fails in its turn, alone and with all that
// follow it. What cannot be done is refused as documented; nothing is half done, leaks or, but for key wrap, throws;
// and all works again afterwards.
#include "support/Callbacks.h"
#include "support/Digests.h"
#include "support/FipsHome.h"
#include "support/Provider.h"
#include "support/Sweep.h"
#include "support/Trace.h"
#include "whole/Switches.h"

#include <krOpenSSL/krInformation.h>
#include <krOpenSSL/kroAESWrap.h>
#include <krOpenSSL/kroCiphers.h>
#include <krOpenSSL/kroFipsRngSha1.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <memory>
#include <new>
#include <optional>
#include <tuple>

namespace {

using namespace krTest;
using allocations::Spared;

struct Row {
  std::string name;
  std::function<bool()> run; ///< false when something was refused; what must not be is a failure of the test
  std::string says{};        ///< the trace of an object without its first allocation
};

bool runWithoutThrow(const Row &row) {
  try {
    return row.run();
  } catch (...) {
    ADD_FAILURE() << "an exception came out";
    return false;
  }
}

void sweepRows(const std::vector<Row> &rows) {
  Trace trace;
  for (const Row &row : rows) {
    SCOPED_TRACE(row.name);
    std::vector<Lines> runs;
    sweep(
        [&] {
          const bool done = runWithoutThrow(row);
          EXPECT_TRUE(done || allocations::failed());
          const Spared spared;
          runs.push_back(trace.lines());
          trace.clear();
        },
        [&] {
          EXPECT_TRUE(runWithoutThrow(row));
          trace.clear();
        });
    if (testing::Test::HasFailure()) {
      return;
    }
    const Lines &first = runs.at(1);
    const Lines says = tagged(row.says);
    EXPECT_NE(std::search(first.begin(), first.end(), says.begin(), says.end()), first.end() + (says.empty() ? 1 : 0));
  }
}

// Classes.

using Out = std::array<unsigned char, 128>;
using Outs = std::array<Out, 6>;

const Out kUntouched = [] {
  Out out;
  out.fill(0xEE);
  return out;
}();
const Out kData{1, 2, 3};
const Out kKey{4, 5, 6};

// Outputs are whole or untouched. What they are, the first run tells, which has all the memory it wants.
Row writing(const std::string &name, const std::function<void(Outs &)> &write, const std::string &says = "") {
  const auto run = [write, expected = std::optional<Outs>()]() mutable {
    Outs outs;
    outs.fill(kUntouched);
    write(outs);
    if (!expected) {
      EXPECT_NE(outs[0], kUntouched);
      expected = outs;
    }
    for (std::size_t i = 0; i < outs.size(); ++i) {
      EXPECT_TRUE(outs.at(i) == expected->at(i) || outs.at(i) == kUntouched) << i;
    }
    return outs == *expected;
  };
  return {name, run, says};
}

// Has an object and its copies finish what was begun in it.
template <class Object, class Begin> void finishCopies(Outs &outs, Begin begin) {
  Object object;
  begin(object);
  object.Update(kData.data(), kData.size());
  Object copy(object);
  Object assigned;
  assigned = object;
  std::size_t i = 0;
  for (Object *each : {&object, &copy, &assigned}) {
    each->Final(outs.at(i++).data());
  }
}

void hash(Outs &outs) {
  finishCopies<kroSHA256>(outs, [](auto &object) { object.Init(); });
  kroSHA256()(outs[3].data(), kData.data(), 7);
}

template <class Hash> void mac(Outs &outs) {
  finishCopies<kroHMAC<Hash>>(outs, [](auto &object) {
    object.SetKey(kKey.data(), kKey.size());
    object.Init();
  });
  kroHMAC<Hash>()(kKey.data(), kKey.size(), kData.data(), 7, outs[3].data());
}

template <class Cipher> void encipher(Outs &outs) {
  Cipher::Encrypt(outs[0].data(), kData.data(), kKey.data(), kData.data(), 96);
  Cipher::Decrypt(outs[1].data(), kData.data(), kKey.data(), kData.data(), 96);
}

void streamRc4(Outs &outs) {
  kroRC4 stream(kKey.data(), 16);
  kroRC4 copy(stream);
  kroRC4 assigned;
  assigned = stream;
  std::size_t i = 0;
  for (kroRC4 *each : {&stream, &copy, &assigned}) {
    each->Transform(outs.at(i++).data(), kData.data(), 96);
  }
}

// A wrap without memory for its work throws, and is tried again then: false would tell of a damaged text.
template <class Work> bool doneOrThrown(const Out &out, Work work) {
  const bool failedBefore = allocations::failed();
  try {
    const bool done = work();
    EXPECT_EQ(allocations::failed(), failedBefore);
    return done;
  } catch (const std::bad_alloc &) {
    const Spared spared;
    EXPECT_EQ(out, kUntouched);
    return work();
  }
}

void wrapKeys(Outs &outs) {
  kroAESWrap wrap;
  wrap.SetEncryptKey(kKey.data(), 32);
  kroAESWrap copy(wrap);
  kroAESWrap assigned;
  assigned = wrap;
  std::size_t i = 0;
  for (kroAESWrap *each : {&wrap, &copy, &assigned}) {
    Out &out = outs.at(i++);
    const bool done = doneOrThrown(out, [&] { return each->Encrypt(out.data(), kData.data(), 64, nullptr); });
    EXPECT_EQ(done, out != kUntouched);
  }
  wrap.SetDecryptKey(kKey.data(), 32);
  Out &unwrapped = outs.at(i);
  const bool done =
      doneOrThrown(unwrapped, [&] { return wrap.Decrypt(unwrapped.data(), 64, outs[0].data(), nullptr); });
  EXPECT_EQ(done, unwrapped != kUntouched);
}

// The error texts.
void describe(Outs &outs) {
  const auto put = [](Out &out, std::string_view text) { std::copy_n(text.begin(), text.size(), out.begin()); };
  {
    const Spared spared;
    ERR_put_error(ERR_LIB_RSA, 0, ERR_R_MALLOC_FAILURE, __FILE__, __LINE__);
  }
  put(outs[0], krOpenSSL::errStr(ERR_PACK(ERR_LIB_RSA, 0, ERR_R_MALLOC_FAILURE)));
  put(outs[1], krOpenSSL::errStr(0));
  EXPECT_EQ(ERR_peek_error(), 0U);
}

// Delegated keys.

// OpenSSL 1.1.1w damages its blinding when an allocation fails half-way through an update of it.
void leaveUnblinded(EVP_PKEY *key) {
  if (RSA *rsa = EVP_PKEY_base_id(key) == EVP_PKEY_RSA ? rsaOf(key) : nullptr; rsa != nullptr) {
    RSA_set_flags(rsa, RSA_FLAG_NO_BLINDING);
  }
}

bool sign(EVP_PKEY *key, EVP_PKEY *owner, int padding) {
  std::array<unsigned char, 512> out;
  std::size_t length = out.size();
  const EVPPKeyCtxPtr context(EVP_PKEY_CTX_new(key, nullptr));
  const bool made = context && EVP_PKEY_sign_init(context.get()) > 0 &&
                    (padding == 0 || EVP_PKEY_CTX_set_rsa_padding(context.get(), padding) > 0) &&
                    EVP_PKEY_CTX_set_signature_md(context.get(), EVP_sha256()) > 0 &&
                    EVP_PKEY_sign(context.get(), out.data(), &length, kData.data(), 32) > 0 &&
                    length <= out.size(); // OpenSSL 3.0 says that it wrote -1 bytes when it could not encode
  const Spared spared;
  EXPECT_TRUE(!made || verifies(owner, Bytes(kData.begin(), kData.begin() + 32),
                                Bytes(out.begin(), out.begin() + length), padding));
  return made;
}

Row signing(Kind kind, int padding, bool viaProvider) {
  EVP_PKEY *owner = softwareKey(kind);
  const std::shared_ptr<EVP_PKEY> key(wholeCopy(owner).release(), EVP_PKEY_free);
  leaveUnblinded(key.get());
  const auto connection =
      std::make_shared<Connection>(writes(signDigest(owner, Bytes(kData.begin(), kData.begin() + 32))));
  attach(key.get(), viaProvider ? connection->ssl.get() : nullptr);
  const auto run = [=] {
    delegateToCallbacks(!viaProvider);
    connection->provider.requests.clear();
    const bool made = sign(key.get(), owner, padding);
    EXPECT_TRUE(!made || (viaProvider ? connection->provider.requests.size() == 1 : callbacks == 1));
    return made;
  };
  return {testing::PrintToString(std::tuple(static_cast<int>(kind), padding, viaProvider)), run};
}

} // namespace

TEST(Allocation, ClassesWriteAllOrNothing) {
  const std::string context = "@krEVP_CIPHER_CTX_new|";
  const std::string says = "Unable to allocate memory for EVP_CIPHER_CTX";
  sweepRows({writing("RC4", streamRc4, context + "kroRC4::kroRC4: " + says), writing("wrap", wrapKeys, context + says),
             writing("error texts", describe), writing("digest", hash),
             writing("HMAC", mac<kroSHA1>,
                     "@krHMAC_CTX_new|kroHMAC<class kroSHA1>::kroHMAC: Unable to allocate memory for HMAC_CTX"),
             writing("HMAC outside FIPS mode", mac<kroMD5>),
             writing("AES", encipher<kroAESCipher<256>>, context + says),
             writing("3DES", encipher<kroDES3CBCCipher>, context + "Process: " + says)});
}

namespace {

struct Delegating {
  Library library;

  Delegating() {
    EXPECT_GE(std::min({kropenssl_get_rsa_idx(), kropenssl_get_dsa_idx(), kropenssl_get_ecdsa_idx(),
                        kropenssl_get_ssl_ctx_idx()}),
              0);
    leaveUnblinded(softwareKey(Kind::rsa));
  }
};

} // namespace

TEST(Allocation, KeysSignOrFailWholeOnEveryWay) {
  const Delegating scene;
  std::vector<Row> rows;
  for (const auto &[kind, padding] :
       {std::pair(Kind::rsa, RSA_PKCS1_PADDING), std::pair(Kind::dsa, 0), std::pair(Kind::p256, 0)}) {
    for (const bool viaProvider : {true, false}) {
      rows.push_back(signing(kind, padding, viaProvider));
    }
  }
  sweepRows(rows);
}

TEST(Allocation, EnginesAndModesAreOnOrOff) {
  const FipsHome home;
  sweepRows({{"set-up", setUp}, {"load", load}});
  krOSSLSetup();
  sweepRows({{"modes", switchModes}, {"bridge", loadBridge}});
}

TEST(Allocation, KeysInFipsModeSignOrFailWhole) {
  const FipsHome home;
  const Delegating scene;
  krFipsUseOpenSSLFIPS(1);
  ASSERT_EQ(krFipsModeOn(), krOpenSSL::kFipsOk);
  sweepRows({signing(Kind::rsa, RSA_PKCS1_PADDING, true), signing(Kind::rsa, RSA_PKCS1_PSS_PADDING, false),
             signing(Kind::p256, 0, true), signing(Kind::p256, 0, false)});
}

namespace {

void useClasses() {
  for (const auto use :
       {hash, mac<kroSHA1>, encipher<kroAESCipher<256>>, encipher<kroDES3CBCCipher>, streamRc4, wrapKeys}) {
    Outs outs;
    outs.fill(kUntouched);
    use(outs);
  }
  EXPECT_TRUE(kroFipsRngSha1::Validate());
}

// Every function but those of the classes, and what it then answers.
void useTheRest() {
  delegateToCallbacks(true);
  for (const auto index :
       {kropenssl_get_rsa_idx, kropenssl_get_dsa_idx, kropenssl_get_ecdsa_idx, kropenssl_get_ssl_ctx_idx}) {
    EXPECT_EQ(index(), -1);
  }
  EXPECT_EQ(krOSSLCleanup(), 0);
  EXPECT_EQ(krOSSLSetup(), 1);
  EXPECT_EQ(krOpenSSLEngineLoad(), 0);
  EXPECT_EQ(krOpenSSLEngineUnload(), 1);
  EXPECT_EQ(krFipsUseOpenSSLFIPS(1) + krFipsUsingOpenSSLFIPS(), 2);
  EXPECT_EQ(krFipsSetPath(""), krOpenSSL::kFipsOk);
  EXPECT_EQ(krFipsModeOn(), krOpenSSL::kFipsNotAvailable);
  EXPECT_EQ(krSetWolfEngineLogLevel(1), 0);
  EXPECT_EQ(krFipsModeOff(), krOpenSSL::kFipsOk);
  EXPECT_EQ(krFipsGetState() + krFipsModeError() + krFipsMode(), 0);
  krFipsClose();
  const bool without = kOpenSSL3; // functions
  EXPECT_EQ(krOpenSSL::errStr(0),
            without ? "error:00000000:lib(0)::reason(0)" : "error:00000000:lib(0):func(0):reason(0)");
  EXPECT_EQ(krOpenSSL::errStr(ERR_PACK(9, 7, 0xfff)),
            without ? "error:04800FFF:lib(9)::reason(4095)" : "error:09007FFF:lib(9):func(7):reason(4095)");
}

} // namespace

TEST(AllocationDeathTest, EveryExportIsHarmlessAfterOpenSSLWasCleanedUp) {
  const auto useAfter = [] {
    const FipsHome home;
    krOSSLSetup();
    useClasses();
    using Objects = std::tuple<kroSHA256, kroHMAC<kroSHA256>, kroRC4, kroAESWrap>;
    auto made = std::make_unique<Objects>();
    OPENSSL_cleanup();
    made.reset();
    useClasses();
    useTheRest();
    std::_Exit(testing::Test::HasFailure() ? 1 : 0); // nobody may ask OpenSSL anything now
  };
  EXPECT_EXIT(useAfter(), testing::ExitedWithCode(0), "");
}
