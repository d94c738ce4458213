// TLS handshakes in memory, of servers whose private keys are elsewhere with clients that verify them.
#include "support/Handshake.h"

#include <gtest/gtest.h>

#include <tuple>

namespace {

using namespace krTest;

int operations = 0;

template <auto operation>
int elsewhere(int flen, const unsigned char *from, unsigned char *to, RSA * /*rsa*/, int padding) {
  ++operations;
  return operation(flen, from, to, EVP_PKEY_get0_RSA(softwareKey(Kind::rsa)), padding);
}

} // namespace

TEST(Tls, HandshakesSucceedWithThePublicHalfOnly) {
  const Library library;
  krEngineSetRSAPrivateKeyOpCallback(elsewhere<RSA_private_encrypt>, 1);
  krEngineSetRSAPrivateKeyOpCallback(elsewhere<RSA_private_decrypt>, 0);
  constexpr bool kProvider = true;
  constexpr bool kCallback = false;
  const std::tuple<int, const char *, Kind, bool> rows[] = {
      {TLS1_3_VERSION, "ALL", Kind::p256, kProvider},
      {TLS1_3_VERSION, "ALL", Kind::rsa, kCallback}, // PSS
      {TLS1_2_VERSION, "ECDHE-RSA-AES128-GCM-SHA256", Kind::rsa, kProvider},
      {TLS1_2_VERSION, "ECDHE-RSA-AES128-GCM-SHA256", Kind::rsa, kCallback}, // PSS
      {TLS1_2_VERSION, "AES128-GCM-SHA256", Kind::rsa, kCallback},           // key transport: a decryption
      {TLS1_2_VERSION, "ECDHE-ECDSA-AES128-GCM-SHA256", Kind::p384, kProvider},
      {TLS1_2_VERSION, "DHE-DSS-AES128-GCM-SHA256", Kind::dsa, kProvider},
      {TLS1_VERSION, "ECDHE-RSA-AES128-SHA", Kind::rsa, kProvider},
      {TLS1_VERSION, "ECDHE-ECDSA-AES128-SHA", Kind::p256, kProvider},
  };
  for (const auto &[version, ciphers, kind, viaProvider] : rows) {
    SCOPED_TRACE(testing::Message() << version << ciphers << viaProvider);
    const Handshake handshake(version, ciphers, softwareKey(kind));
    Provider provider(signsWith(softwareKey(kind)));
    if (viaProvider) {
      handshake.delegateTo(provider);
    }
    operations = 0;
    EXPECT_EQ(handshake.run(), 2);
    EXPECT_EQ(provider.requests.size(), viaProvider ? 1U : 0U);
    EXPECT_EQ(operations, viaProvider ? 0 : 1);
  }
}

TEST(Tls, HandshakesFailWithAProviderThatDoesNotSignRightly) {
  const Library library;
  for (const Kind kind : {Kind::rsa, Kind::dsa, Kind::p256}) {
    EVP_PKEY *owner = softwareKey(kind);
    for (const auto &behaviour :
         {claims(0, false), claims(0), writes(signDigest(owner, Bytes(32, 0x0f))), // for another digest
          writes(Bytes(static_cast<std::size_t>(EVP_PKEY_size(owner) - 1), 0x30))}) {
      const Handshake handshake(TLS1_2_VERSION, "ALL", owner);
      Provider provider(behaviour);
      handshake.delegateTo(provider);
      EXPECT_EQ(handshake.run(), 0);
      EXPECT_EQ(provider.requests.size(), 1U);
    }
  }
}
