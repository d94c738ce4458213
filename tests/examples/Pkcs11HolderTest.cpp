// The key holder over a token, against OpenSSL's own verification and encryption. Run by pkcs11_test.sh in a folder
// with the token 'web', the file 'pin' and the public halves rsa.der and server.der.
#include "Failure.h"
#include "SessionPool.h"
#include "TokenHolder.h"

#include <krOpenSSL/krDelegate.hpp>

#include <gtest/gtest.h>
#include <openssl/rand.h>

#include <array>
#include <atomic>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <thread>

using namespace delegated_tls;
using namespace krOpenSSL;

namespace {

Bytes random(std::size_t length) {
  Bytes bytes(length);
  RAND_bytes(bytes.data(), static_cast<int>(length));
  return bytes;
}

/// A started holder, the key's public half, and the last failure it reported.
struct Held {
  explicit Held(const std::string &name) {
    std::ifstream file(name + ".der", std::ios::binary);
    const Bytes der{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
    publicKey = publicKeyFrom(der);
    const char *module = std::getenv("KR_PKCS11_MODULE"); // NOLINT(concurrency-mt-unsafe)
    holder = startTokenHolder({module, "web", "pin"}, der, [this](const std::string &failure) { reported = failure; });
  }

  bool signs(const Bytes &digest) const {
    const auto signature = holder->perform(0, Operation::sign, 0, digest);
    const EVPPKeyCtxPtr context(EVP_PKEY_CTX_new(publicKey.get(), nullptr));
    EVP_PKEY_verify_init(context.get());
    EVP_PKEY_CTX_set_signature_md(context.get(), EVP_get_digestbynid(hashOfLength(digest.size())));
    return signature &&
           EVP_PKEY_verify(context.get(), signature->data(), signature->size(), digest.data(), digest.size()) == 1;
  }

  std::string reported;
  EVPPKeyPtr publicKey;
  std::unique_ptr<KeyHolder> holder;
};

} // namespace

TEST(TokenHolder, SignaturesOfEveryDigestLengthVerify) {
  for (const char *name : {"rsa", "server"}) {
    const Held held(name);
    for (const unsigned length : {20U, 28U, 32U, 36U, 48U, 64U}) {
      if (length != 36 || EVP_PKEY_base_id(held.publicKey.get()) == EVP_PKEY_RSA) {
        EXPECT_TRUE(held.signs(random(length))) << name << ' ' << length << ' ' << held.reported;
      }
    }
  }
}

TEST(TokenHolder, RsaOperationsAreOpenSSLsInverse) {
  const Held held("rsa");
  RSA *rsa = EVP_PKEY_get0_RSA(held.publicKey.get());
  const auto size = static_cast<std::size_t>(RSA_size(rsa));
  Bytes block = random(size);
  block.front() = 0; // below the modulus
  const std::pair<int, Bytes> cases[]{{RSA_PKCS1_PADDING, random(48)}, {RSA_NO_PADDING, block}};
  for (const auto &[padding, data] : cases) {
    const int length = static_cast<int>(data.size());
    const auto encrypted = held.holder->perform(0, Operation::rsaPrivateEncrypt, padding, data);
    ASSERT_TRUE(encrypted) << held.reported;
    Bytes opened(size);
    EXPECT_EQ(RSA_public_decrypt(static_cast<int>(encrypted->size()), encrypted->data(), opened.data(), rsa, padding),
              length);
    opened.resize(data.size());
    EXPECT_EQ(opened, data);

    Bytes sealed(size);
    ASSERT_EQ(RSA_public_encrypt(length, data.data(), sealed.data(), rsa, padding), RSA_size(rsa));
    EXPECT_EQ(held.holder->perform(0, Operation::rsaPrivateDecrypt, padding, sealed), data) << held.reported;
  }
}

TEST(TokenHolder, WhatCannotBeDoneIsReportedAndLeavesTheHolderWell) {
  struct Case {
    const char *key;
    Operation operation;
    int padding;
    std::size_t length;
    const char *reason;
  };
  const Case cases[]{
      {"rsa", Operation::sign, 0, 33, "no hash algorithm has digests of 33 bytes"},
      {"rsa", Operation::rsaPrivateDecrypt, RSA_PKCS1_OAEP_PADDING, 256, "does not do RSA padding 4"},
      {"rsa", Operation::rsaPrivateDecrypt, RSA_PKCS1_PADDING, 255, "the token does not decrypt: CKR_"},
      {"rsa", Operation::rsaPrivateEncrypt, RSA_PKCS1_PADDING, 246, "the token does not sign: CKR_"},
      {"server", Operation::rsaPrivateDecrypt, RSA_NO_PADDING, 256, "an EC key only signs"},
  };
  for (const Case &row : cases) {
    const Held held(row.key);
    EXPECT_FALSE(held.holder->perform(0, row.operation, row.padding, random(row.length))) << row.reason;
    EXPECT_NE(held.reported.find(row.reason), std::string::npos) << held.reported;
    EXPECT_TRUE(held.signs(random(32))) << row.reason;
  }
}

TEST(TokenHolder, MoreThreadsThanSessionsSignAndATokenThatWasAwaySignsAtOnce) {
  const Held held("rsa");
  std::atomic<int> good = 0;
  {
    std::array<std::jthread, 24> threads;
    for (std::jthread &thread : threads) {
      thread = std::jthread([&] {
        for (int k = 0; k < 10; ++k) {
          good += held.signs(random(32)) ? 1 : 0;
        }
      });
    }
  }
  EXPECT_EQ(good, 240) << held.reported;

  std::filesystem::rename("tokens", "away");
  EXPECT_FALSE(held.signs(random(32)));
  std::filesystem::rename("away", "tokens");
  EXPECT_TRUE(held.signs(random(32))) << held.reported; // none of the idle sessions is in the way
}

TEST(SessionPool, PlacesAreBoundedSessionsKeptAndFailedOnesReplaced) {
  using namespace std::chrono_literals;
  int opened = 0;
  pkcs11::SessionPool pool(
      [&opened] {
        ++opened;
        return pkcs11::KeySession{};
      },
      1, 50ms);
  {
    pkcs11::SessionPool::Lease lease(pool);
    EXPECT_THROW(pkcs11::SessionPool::Lease second(pool), Failure);
    lease.giveBack();
  }
  { pkcs11::SessionPool::Lease kept(pool); } // not given back
  EXPECT_EQ(opened, 1);
  { pkcs11::SessionPool::Lease(pool).giveBack(); }
  EXPECT_EQ(opened, 2);
  pool.closeIdle();
  pkcs11::SessionPool failing([]() -> pkcs11::KeySession { throw Failure("no token"); }, 1, 50ms);
  for (int i = 0; i < 2; ++i) { // a place is free again after a session that could not be opened
    EXPECT_THROW(
        try { pkcs11::SessionPool::Lease lease(failing); } catch (const Failure &failure) {
          EXPECT_STREQ(failure.what(), "no token");
          throw;
        },
        Failure);
  }
}
