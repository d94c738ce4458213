// TLS handshakes in memory, of servers whose private keys are elsewhere with clients that verify them.
#include "support/Handshake.h"

#include <gtest/gtest.h>

using namespace krTest;

TEST(Tls, HandshakesSucceedWithThePublicHalfOnly) {
  const Library library;
  expectDelegated(TLS1_3_VERSION, "ALL", Kind::p256, true);
  expectDelegated(TLS1_3_VERSION, "ALL", Kind::rsa, false); // PSS
  expectDelegated(TLS1_2_VERSION, "ECDHE-RSA-AES128-GCM-SHA256", Kind::rsa, true);
  expectDelegated(TLS1_2_VERSION, "AES128-GCM-SHA256", Kind::rsa, false); // key transport: a decryption
  expectDelegated(TLS1_2_VERSION, "ECDHE-ECDSA-AES128-GCM-SHA256", Kind::p384, true);
  expectDelegated(TLS1_2_VERSION, "DHE-DSS-AES128-GCM-SHA256", Kind::dsa, true);
  expectDelegated(TLS1_VERSION, "ECDHE-RSA-AES128-SHA", Kind::rsa, true); // MD5 and SHA-1
}

TEST(Tls, HandshakesFailWithAProviderThatDoesNotSignRightly) {
  const Library library;
  for (const Kind kind : {Kind::rsa, Kind::dsa, Kind::p256}) {
    EVP_PKEY *owner = softwareKey(kind);
    for (const auto &behaviour :
         {claims(0, false), claims(0), writes(signDigest(owner, Bytes(32, 0x0f))), // for another digest
          writes(kind == Kind::rsa ? Bytes(256, 0x30) : derSignature(8000, 8000))}) {
      const Handshake handshake(kind == Kind::p256 ? TLS1_3_VERSION : TLS1_2_VERSION, "ALL", owner);
      Provider provider(behaviour);
      handshake.delegateTo(provider);
      EXPECT_EQ(handshake.run(), 0);
      EXPECT_EQ(provider.requests.size(), 1U);
    }
  }
}
