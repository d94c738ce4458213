// Every export while memory runs out: each allocation, OpenSSL's or C++'s, fails in its turn, alone and with all that
// follow it. What cannot be done is refused as documented; nothing is half done, leaks or throws; and all works again
// afterwards. exports_test.sh sees to it that no export is missing here.
#include "support/Digests.h"
#include "support/FipsHome.h"
#include "support/Handshake.h"
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

template <class T> void zeroFill() {
  alignas(T) std::array<unsigned char, sizeof(T)> place;
  auto *object = std::launder(reinterpret_cast<T *>(place.data()));
  object->__autoclassinit2(place.size());
  std::destroy_at(object);
}

template <class Hash> void hash(Outs &outs) {
  zeroFill<Hash>();
  zeroFill<kroHashBase>();
  Hash hash;
  hash.Init();
  hash.Update(kData.data(), kData.size());
  Hash copy(hash);
  Hash assigned;
  assigned = hash;
  Hash moved;
  moved = Hash(hash);
  kroHashBase base(hash);
  kroHashBase other(Hash::GetEVP_MD());
  other = base;
  std::size_t i = 0;
  for (kroHashBase *each : std::initializer_list<kroHashBase *>{&hash, &copy, &assigned, &moved, &other}) {
    each->Final(outs.at(i++).data());
  }
  hash(outs.at(i).data(), kData.data(), Hash::SupportsFips() ? 7 : 8);
}

template <class HMAC> void mac(Outs &outs) {
  zeroFill<HMAC>();
  HMAC hmac;
  hmac.SetKey(kKey.data(), kKey.size());
  hmac.Init();
  hmac.Update(kData.data(), kData.size());
  HMAC copy(hmac);
  HMAC assigned;
  assigned = hmac;
  std::size_t i = 0;
  for (HMAC *each : {&hmac, &copy, &assigned}) {
    each->Final(outs.at(i++).data());
  }
  hmac(kKey.data(), kKey.size(), kData.data(), 7, outs.at(i).data());
}

template <class Cipher> void encipher(Outs &outs) {
  Cipher cipher;
  const Cipher other;
  cipher = other;
  cipher = Cipher();
  cipher.Encrypt(outs[0].data(), kData.data(), kKey.data(), kData.data(), 96);
  cipher.Decrypt(outs[1].data(), kData.data(), kKey.data(), kData.data(), 96);
}

void streamRc4(Outs &outs) {
  zeroFill<kroRC4>();
  kroRC4 stream(kKey.data(), 16);
  kroRC4 copy(stream);
  kroRC4 assigned;
  assigned = stream;
  kroRC4 keyed;
  keyed.SetKey(kKey.data(), 5);
  std::size_t i = 0;
  for (kroRC4 *each : {&stream, &copy, &assigned, &keyed}) {
    each->Transform(outs.at(i++).data(), kData.data(), 96);
  }
}

// The one export that throws when there is no memory, as it says.
template <class Call> bool succeeds(Call call) {
  try {
    return call();
  } catch (const std::bad_alloc &) {
    return false;
  }
}

void wrapKeys(Outs &outs) {
  zeroFill<kroAESWrap>();
  kroAESWrap wrap;
  wrap.SetEncryptKey(kKey.data(), 32);
  kroAESWrap copy(wrap);
  kroAESWrap assigned;
  assigned = wrap;
  std::size_t i = 0;
  for (kroAESWrap *each : {&wrap, &copy, &assigned}) {
    Out &out = outs.at(i++);
    const bool done = succeeds([&] { return each->Encrypt(out.data(), kData.data(), 64, nullptr); });
    EXPECT_EQ(done, out != kUntouched);
  }
  wrap.SetDecryptKey(kKey.data(), 32);
  const Out wrapped = outs[0];
  const bool done = succeeds([&] { return wrap.Decrypt(outs.at(i).data(), 64, wrapped.data(), nullptr); });
  EXPECT_EQ(done, outs.at(i) != kUntouched);
  outs.at(++i)[0] = succeeds(kroAESWrap::Validate) ? 1 : 0xEE;
}

// Has no need of memory.
void generate(Outs &outs) {
  struct Generator : kroFipsRngSha1 {
    using kroFipsRngSha1::DoRound;
    using kroFipsRngSha1::ModQ;
    using kroFipsRngSha1::Reduce;
  } generator;
  const Out q{0xff};
  generator.Init(kKey.data(), 64, q.data());
  generator.Iterate(kData.data(), 64);
  generator.ModQ();
  std::array<unsigned char, 24> span{};
  generator.Reduce(span.data(), 0);
  generator.DoRound(outs[0].data(), kData.data(), 64);
  kroFipsRngSha1 other;
  other = generator;
  other.Generate(outs[1].data(), 100, nullptr, 0);
  outs[2][0] = kroFipsRngSha1::Validate() ? 1 : 0xEE;
}

// Information.

void describe(Outs &outs) {
  const auto put = [](Out &out, std::string_view text) { std::copy_n(text.begin(), text.size(), out.begin()); };
  put(outs[0], krGet_OpenSSL_Version());
  const unsigned long code = ERR_PACK(ERR_LIB_RSA, 0, ERR_R_MALLOC_FAILURE);
  {
    const Spared spared;
    ERR_put_error(ERR_LIB_RSA, 0, ERR_R_MALLOC_FAILURE, __FILE__, __LINE__);
  }
  put(outs[1], krOpenSSL::errStr(code));
  put(outs[2], krOpenSSL::errStr(0));
  EXPECT_EQ(ERR_peek_error(), 0U);
  Out seed{};
  EXPECT_EQ(krPlatformGetSeed(seed.data(), seed.size()), 1);
}

// Delegated keys.

int operations = 0;

template <auto operation>
int elsewhere(int flen, const unsigned char *from, unsigned char *to, RSA * /*rsa*/, int padding) {
  ++operations;
  return operation(flen, from, to, EVP_PKEY_get0_RSA(softwareKey(Kind::rsa)), padding);
}

DSA_SIG *signDsa(const unsigned char *digest, int length, DSA * /*dsa*/) {
  ++operations;
  return DSA_do_sign(digest, length, EVP_PKEY_get0_DSA(softwareKey(Kind::dsa)));
}

ECDSA_SIG *signEc(const unsigned char *digest, int length, const BIGNUM * /*kinv*/, const BIGNUM * /*r*/,
                  EC_KEY * /*key*/) {
  ++operations;
  return ECDSA_do_sign(digest, length, EVP_PKEY_get0_EC_KEY(softwareKey(Kind::p256)));
}

void delegateToCallbacks(bool delegate) {
  krEngineSetRSAPrivateKeyOpCallback(delegate ? elsewhere<RSA_private_encrypt> : nullptr, 1);
  krEngineSetRSAPrivateKeyOpCallback(delegate ? elsewhere<RSA_private_decrypt> : nullptr, 0);
  krEngineSetDSAPrivateKeyOpCallback(delegate ? signDsa : nullptr);
  krEngineSetECDSAPrivateKeyOpCallback(delegate ? signEc : nullptr);
}

// OpenSSL 1.1.1w damages its blinding when an allocation fails half-way through an update of it.
void leaveUnblinded(EVP_PKEY *key) {
  if (RSA *rsa = EVP_PKEY_base_id(key) == EVP_PKEY_RSA ? EVP_PKEY_get0_RSA(key) : nullptr; rsa != nullptr) {
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
                    EVP_PKEY_sign(context.get(), out.data(), &length, kData.data(), 32) > 0;
  const Spared spared;
  EXPECT_TRUE(!made || verifies(owner, Bytes(kData.begin(), kData.begin() + 32),
                                Bytes(out.begin(), out.begin() + length), padding));
  return made;
}

enum class Way { provider, callback, software };

Row signing(Kind kind, int padding, Way way) {
  EVP_PKEY *owner = softwareKey(kind);
  const std::shared_ptr<EVP_PKEY> key(wholeCopy(owner).release(), EVP_PKEY_free);
  leaveUnblinded(key.get());
  const auto connection =
      std::make_shared<Connection>(writes(signDigest(owner, Bytes(kData.begin(), kData.begin() + 32))));
  attach(key.get(), way == Way::provider ? connection->ssl.get() : nullptr);
  const auto run = [=] {
    delegateToCallbacks(way == Way::callback);
    connection->provider.requests.clear();
    operations = 0;
    const bool made = sign(key.get(), owner, padding);
    const bool asked = way == Way::provider ? connection->provider.requests.size() == 1 : operations == 1;
    EXPECT_TRUE(!made || asked == (way != Way::software));
    return made;
  };
  return {testing::PrintToString(std::tuple(static_cast<int>(kind), padding, static_cast<int>(way))), run};
}

Row decrypting(Way way) {
  const std::shared_ptr<EVP_PKEY> key(wholeCopy(softwareKey(Kind::rsa)).release(), EVP_PKEY_free);
  leaveUnblinded(key.get());
  RSA *rsa = EVP_PKEY_get0_RSA(key.get());
  std::array<unsigned char, 256> input{};
  EXPECT_EQ(RSA_public_encrypt(16, kData.data(), input.data(), rsa, RSA_PKCS1_OAEP_PADDING), 256);
  const auto run = [=, held = key] {
    delegateToCallbacks(way == Way::callback);
    std::array<unsigned char, 256> out{};
    const int length = RSA_private_decrypt(256, input.data(), out.data(), rsa, RSA_PKCS1_OAEP_PADDING);
    EXPECT_TRUE(length == -1 || (length == 16 && std::equal(out.begin(), out.begin() + 16, kData.begin())));
    return length == 16;
  };
  return {"decryption", run};
}

Row shakingHands(int version, const char *ciphers, Kind kind, Way way) {
  const auto handshake = std::make_shared<Handshake>(version, ciphers, softwareKey(kind));
  const auto provider = std::make_shared<Provider>(signsWith(softwareKey(kind)));
  const auto run = [=] {
    {
      const Spared spared;
      delegateToCallbacks(way == Way::callback);
      handshake->reconnect();
      if (way == Way::provider) {
        handshake->delegateTo(*provider);
      }
      provider->requests.clear();
      operations = 0;
    }
    const bool finished = handshake->run() == 2;
    const auto asked = static_cast<int>(provider->requests.size()) + operations;
    EXPECT_TRUE(finished ? asked == 1 : asked <= 1);
    return finished;
  };
  return {std::to_string(version) + " " + ciphers, run};
}

} // namespace

TEST(Allocation, ClassesWriteAllOrNothing) {
  std::vector<Row> rows{
      writing("RC4", streamRc4, "@krEVP_CIPHER_CTX_new|kroRC4::kroRC4: Unable to allocate memory for EVP_CIPHER_CTX"),
      writing("wrap", wrapKeys, "@krEVP_CIPHER_CTX_new|Unable to allocate memory for EVP_CIPHER_CTX"),
      writing("generator", generate), writing("information", describe)};
  forEachDigest([&]<class T>(const DigestRow<T> &row) {
    rows.push_back(writing(row.name, hash<T>));
    rows.push_back(writing(std::string("HMAC ") + row.name, mac<kroHMAC<T>>,
                           std::string("@krHMAC_CTX_new|kroHMAC<class kro") + row.name +
                               ">::kroHMAC: Unable to allocate memory for HMAC_CTX"));
  });
  const char *aes = "@krEVP_CIPHER_CTX_new|Unable to allocate memory for EVP_CIPHER_CTX";
  rows.push_back(writing("AES-128", encipher<kroAESCipher<128>>, aes));
  rows.push_back(writing("AES-192", encipher<kroAESCipher<192>>, aes));
  rows.push_back(writing("AES-256", encipher<kroAESCipher<256>>, aes));
  rows.push_back(writing("3DES", encipher<kroDES3CBCCipher>,
                         "@krEVP_CIPHER_CTX_new|Process: Unable to allocate memory for EVP_CIPHER_CTX"));
  sweepRows(rows);
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
  std::vector<Row> rows{decrypting(Way::callback), decrypting(Way::software)};
  for (const auto &[kind, padding] :
       {std::pair(Kind::rsa, RSA_PKCS1_PADDING), std::pair(Kind::dsa, 0), std::pair(Kind::p256, 0)}) {
    for (const Way way : {Way::provider, Way::callback, Way::software}) {
      rows.push_back(signing(kind, padding, way));
    }
  }
  rows.push_back(signing(Kind::rsa, RSA_PKCS1_PSS_PADDING, Way::callback));
  sweepRows(rows);
}

TEST(Allocation, HandshakesFinishWithOneSignatureOrFail) {
  const Delegating scene;
  sweepRows({shakingHands(TLS1_3_VERSION, "ALL", Kind::p256, Way::provider),
             shakingHands(TLS1_2_VERSION, "ECDHE-RSA-AES128-GCM-SHA256", Kind::rsa, Way::provider),
             shakingHands(TLS1_2_VERSION, "AES128-GCM-SHA256", Kind::rsa, Way::callback)}); // key transport
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
  sweepRows({signing(Kind::rsa, RSA_PKCS1_PADDING, Way::provider),
             signing(Kind::rsa, RSA_PKCS1_PSS_PADDING, Way::callback), signing(Kind::p256, 0, Way::provider),
             signing(Kind::p256, 0, Way::callback)});
}
