// Keys in FIPS mode: delegated ones sign through the caller, the others through wolfEngine.
#include "support/Callbacks.h"
#include "support/FipsHome.h"
#include "support/Handshake.h"

#include "fips/DelegatedSign.h"

#include <krOpenSSL/krDelegate.hpp>
#include <krOpenSSL/krFips.h>
#include <krOpenSSL/krLifecycle.h>

#include <gtest/gtest.h>
#include <openssl/err.h>

#include <algorithm>
#include <tuple>

namespace {

using namespace krTest;
using krOpenSSL::EVPMDCtxPtr;
using krOpenSSL::RSAPtr;

const Bytes kDigest(32, 0x5a);

// FIPS mode, with the keys made before.
struct Fips {
  FipsHome home;
  Library library;

  Fips() {
    krFipsUseOpenSSLFIPS(1);
    EXPECT_EQ(krFipsModeOn(), 0U);
  }
};

int ownSignatures() { return FipsHome::record().ownSignatures.exchange(0); }

} // namespace

TEST(FipsKeys, DelegatedOnesSignThroughTheCaller) {
  const Fips fips;
  krFipsModeOff();
  const EVPPKeyPtr ordinary[]{publicHalf(softwareKey(Kind::rsa)), publicHalf(softwareKey(Kind::p256))};
  krFipsModeOn();
  const EVPPKeyPtr fresh[]{publicHalf(softwareKey(Kind::rsa)), publicHalf(softwareKey(Kind::p256))};
  for (const auto &keys : {ordinary, fresh}) {
    const struct {
      EVP_PKEY *key;
      Kind kind;
      int padding;
      bool viaProvider = false;
    } rows[]{
        {.key = keys[0].get(), .kind = Kind::rsa, .padding = RSA_PKCS1_PADDING, .viaProvider = true},
        {.key = keys[0].get(), .kind = Kind::rsa, .padding = RSA_PKCS1_PADDING},
        {.key = keys[0].get(), .kind = Kind::rsa, .padding = RSA_PKCS1_PSS_PADDING},
        {.key = keys[1].get(), .kind = Kind::p256, .padding = 0, .viaProvider = true},
        {.key = keys[1].get(), .kind = Kind::p256, .padding = 0},
    };
    for (const auto &[key, kind, padding, viaProvider] : rows) {
      EVP_PKEY *owner = softwareKey(kind);
      SCOPED_TRACE(testing::Message() << EVP_PKEY_id(key) << ' ' << padding << ' ' << viaProvider);
      Connection connection(signsWith(owner));
      attach(key, viaProvider ? connection.ssl.get() : nullptr);
      delegateToCallbacks(!viaProvider);
      EXPECT_TRUE(verifies(owner, kDigest, signDigest(key, kDigest, padding), padding));
      EXPECT_EQ(connection.provider.requests.size(), viaProvider ? 1U : 0U);
      EXPECT_EQ(callbacks, viaProvider ? 0 : 1);
      Connection lies(EVP_PKEY_id(key) == EVP_PKEY_RSA ? claims(257) : writes(derSignature(33, 32)));
      attach(key, viaProvider ? lies.ssl.get() : nullptr);
      krEngineSetRSAPrivateKeyOpCallback([](auto...) { return 257; }, 1);
      krEngineSetECDSAPrivateKeyOpCallback([](auto...) { return decoded(d2i_ECDSA_SIG, derSignature(33, 32)); });
      EXPECT_EQ(signDigest(key, kDigest, padding), Bytes{});
      ERR_clear_error();
    }
  }
  EXPECT_EQ(FipsHome::record().digestsAsked, 0); // for EC it has none to tell, and says so in the log
}

TEST(FipsKeys, OtherKeysAreWolfEngines) {
  const Fips fips;
  for (const Kind kind : {Kind::rsa, Kind::p256, Kind::p521}) {
    EVP_PKEY *owner = softwareKey(kind);
    const EVPPKeyPtr whole = wholeCopy(owner);
    for (const int padding : {RSA_PKCS1_PADDING, RSA_PKCS1_PSS_PADDING}) {
      EXPECT_TRUE(verifies(owner, kDigest, signDigest(whole.get(), kDigest, padding), padding));
    }
    EXPECT_EQ(ownSignatures(), 2);
  }
}

TEST(FipsKeys, DirectSignaturesFallBackToOpenSSLsMethod) {
  const Fips fips;
  const RSA *owner = rsaOf(softwareKey(Kind::rsa));
  const EVPPKeyPtr whole = wholeCopy(softwareKey(Kind::rsa));
  const RSAPtr withoutFactors(RSA_new());
  RSA_set0_key(withoutFactors.get(), BN_dup(RSA_get0_n(owner)), BN_dup(RSA_get0_e(owner)), BN_dup(RSA_get0_d(owner)));
  const EVPPKeyPtr publicOnly = publicHalf(softwareKey(Kind::rsa));
  const RSAPtr threePrimes(RSA_new());
  const krOpenSSL::BIGNUMPtr exponent(BN_new());
  BN_set_word(exponent.get(), RSA_F4);
  ASSERT_EQ(RSA_generate_multi_prime_key(threePrimes.get(), 1024, 3, exponent.get(), nullptr), 1);
  const std::tuple<RSA *, bool> rows[]{{rsaOf(whole.get()), true},
                                       {withoutFactors.get(), true},
                                       {threePrimes.get(), true},
                                       {rsaOf(publicOnly.get()), false}};
  for (const auto &[rsa, signs] : rows) {
    Bytes signature(static_cast<std::size_t>(RSA_size(rsa)));
    unsigned int length = 0;
    const int made = RSA_sign(NID_sha256, kDigest.data(), 32, signature.data(), &length, rsa);
    EXPECT_EQ(made == 1, signs);
    EXPECT_EQ(RSA_verify(NID_sha256, kDigest.data(), 32, signature.data(), length, rsa) == 1, signs);
    ERR_clear_error();
  }
  const EVPPKeyPtr ec = wholeCopy(softwareKey(Kind::p256));
  const krOpenSSL::ECDSASigPtr signature(ECDSA_do_sign(kDigest.data(), 32, ecKeyOf(ec.get())));
  EXPECT_EQ(ECDSA_do_verify(kDigest.data(), 32, signature.get(), ecKeyOf(ec.get())), 1);
  EXPECT_EQ(ownSignatures(), 0);
}

TEST(FipsKeys, TlsHandshakesSucceedWithThePublicHalfOnly) {
  const Fips fips;
  expectDelegated(TLS1_2_VERSION, "ECDHE-RSA-AES128-GCM-SHA256", Kind::rsa, true);
  expectDelegated(TLS1_3_VERSION, "ALL", Kind::p256, true);
  expectDelegated(TLS1_VERSION, "ECDHE-RSA-AES128-SHA", Kind::rsa, true); // MD5 and SHA-1
  expectDelegated(TLS1_3_VERSION, "ALL", Kind::rsa, false);               // PSS
}

TEST(FipsKeys, OfRsaSignWithPssOverMutualTlsBesideSoftwareKeys) {
  const Fips fips;
  const krOpenSSL::Library library;
  const krOpenSSL::DelegatedKey key(
      library, softwareKey(Kind::rsa),
      {nullptr,
       [](const krOpenSSL::PssRequest &request, std::span<unsigned char> out) {
         const auto length = static_cast<int>(request.block.size());
         RSA *rsa = krOpenSSL::keyObject::rsaOf(softwareKey(Kind::rsa));
         return static_cast<std::size_t>(
             std::max(0, RSA_private_encrypt(length, request.block.data(), out.data(), rsa, RSA_NO_PADDING)));
       },
       nullptr});
  Handshake handshake(TLS1_3_VERSION, "ALL", softwareKey(Kind::rsa));
  X509 *certificate = SSL_CTX_get0_certificate(handshake.serverContext.get());
  X509_STORE_add_cert(SSL_CTX_get_cert_store(handshake.serverContext.get()), certificate);
  SSL_CTX_use_certificate(handshake.clientContext.get(), certificate);
  SSL_CTX_set_verify(handshake.serverContext.get(), SSL_VERIFY_PEER | SSL_VERIFY_FAIL_IF_NO_PEER_CERT, nullptr);
  for (SSL_CTX *context : {handshake.serverContext.get(), handshake.clientContext.get()}) {
    key.prepare(context);
  }
  handshake.reconnect();
  key.bindTo(handshake.server.get());
  key.bindTo(handshake.client.get());
  EXPECT_EQ(ownSignatures(), 1); // the certificate's
  EXPECT_EQ(handshake.run(), 2);
  EXPECT_EQ(ownSignatures(), 0);
  EXPECT_FALSE(signDigest(wholeCopy(softwareKey(Kind::rsa)).get(), kDigest).empty());
  EXPECT_EQ(ownSignatures(), 1);
}

TEST(FipsKeys, AreSplicedOnceAndAreOrdinaryAgainAfterwards) {
  const Fips fips;
  for (int round = 0; round < 3; ++round) {
    const EVPPKeyPtr whole = wholeCopy(softwareKey(Kind::rsa));
    EXPECT_FALSE(signDigest(whole.get(), kDigest).empty()); // a splice upon itself would not return
    EXPECT_EQ(ownSignatures(), 1);
    krFipsModeOff();
    EXPECT_FALSE(signDigest(whole.get(), kDigest).empty());
    EXPECT_FALSE(signDigest(wholeCopy(softwareKey(Kind::rsa)).get(), kDigest).empty());
    EXPECT_EQ(ownSignatures(), 0);
    krFipsModeOn();
  }
}

TEST(FipsKeys, RefuseWhatDoesNotFit) {
  const Fips fips;
  delegateToCallbacks(true);
  for (const Kind kind : {Kind::rsa, Kind::p256}) {
    const EVPPKeyPtr key = publicHalf(softwareKey(kind));
    const EVPPKeyCtxPtr context(EVP_PKEY_CTX_new(key.get(), nullptr));
    const auto sign = kind == Kind::rsa ? krOpenSSL::signDelegatedRsa : krOpenSSL::signDelegatedEc;
    EVP_PKEY_sign_init(context.get());
    EVP_PKEY_CTX_set_signature_md(context.get(), EVP_sha256());
    const auto size = static_cast<std::size_t>(EVP_PKEY_size(key.get()));
    Bytes out(size);
    std::size_t length = 0;
    EXPECT_EQ(sign(context.get(), nullptr, &length, nullptr, 32), 1);
    EXPECT_EQ(length, size);
    length = size - 1;
    EXPECT_LE(sign(context.get(), out.data(), &length, kDigest.data(), 32), 0);
    length = size;
    EXPECT_LE(sign(context.get(), out.data(), &length, kDigest.data(), std::size_t{1} << 32U), 0);
    if (kind == Kind::rsa) {
      EXPECT_LE(sign(context.get(), out.data(), &length, kDigest.data(), 20), 0); // not SHA-256
      EVP_PKEY_CTX_set_rsa_padding(context.get(), RSA_X931_PADDING);
      EXPECT_LE(sign(context.get(), out.data(), &length, kDigest.data(), 32), 0);
    }
    ERR_clear_error();
  }
}

TEST(FipsKeys, WolfEnginesLinesArriveInTheLogLiterally) {
  Fips fips;
  fips.home.newLogLines();
  EXPECT_EQ(krSetWolfEngineLogLevel(1), 1);
  EXPECT_FALSE(signDigest(wholeCopy(softwareKey(Kind::rsa)).get(), kDigest).empty());
  const std::vector<std::string> lines = fips.home.newLogLines();
  for (const char *line : {"2 7 own RSA signature: 100%s", "3 0 own RSA signature: 100%s"}) {
    EXPECT_EQ(std::count(lines.begin(), lines.end(), line), 1) << line;
  }
}
