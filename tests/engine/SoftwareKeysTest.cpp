// Keys that nobody delegates work as without the library.
#include "support/Keys.h"

#include <gtest/gtest.h>
#include <openssl/err.h>

#include <tuple>

namespace {

using namespace krTest;

// A key of the same kind that the engine's methods generate.
EVPPKeyPtr generateLike(EVP_PKEY *key) {
  EVP_PKEY *made = nullptr;
  const EVPPKeyCtxPtr context(EVP_PKEY_CTX_new(key, nullptr));
  EVP_PKEY_keygen_init(context.get());
  EVP_PKEY_keygen(context.get(), &made);
  return EVPPKeyPtr(made);
}

} // namespace

TEST(SoftwareKeys, SignAndVerifyAsBefore) {
  const Library library;
  for (const auto &[kind, length, padding] : {std::tuple(Kind::rsa, 32U, RSA_PKCS1_PADDING),
                                              {Kind::rsa, 36U, RSA_PKCS1_PADDING},
                                              {Kind::rsa, 48U, RSA_PKCS1_PSS_PADDING},
                                              {Kind::dsa, 28U, 0},
                                              {Kind::p256, 32U, 0},
                                              {Kind::p384, 48U, 0},
                                              {Kind::p521, 64U, 0},
                                              {Kind::p521, 28U, 0}}) {
    SCOPED_TRACE(testing::Message() << static_cast<int>(kind) << " " << length);
    const Bytes digest(length, 0x6d);
    EVP_PKEY *before = softwareKey(kind);
    const EVPPKeyPtr during = wholeCopy(before);
    const EVPPKeyPtr generated = generateLike(before);
    EXPECT_TRUE(verifies(before, digest, signDigest(during.get(), digest, padding), padding));
    EXPECT_TRUE(verifies(during.get(), digest, signDigest(before, digest, padding), padding));
    EXPECT_TRUE(verifies(generated.get(), digest, signDigest(generated.get(), digest, padding), padding));
    EXPECT_FALSE(verifies(before, digest, signDigest(generated.get(), digest, padding), padding));
    ERR_clear_error();
  }
}
