// Who carries out a private-key operation, what it is given, and what the trace says.
#include "support/Provider.h"
#include "support/Trace.h"

#include <krOpenSSL/krLifecycle.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <stdexcept>
#include <tuple>

namespace {

using namespace krTest;

const Bytes kDigest(32, 0x2b);

// The callbacks note their arguments, and then do what OpenSSL does.
using Arguments = std::tuple<int, const void *, const void *, const void *, const void *, int>;
std::vector<Arguments> called;
bool callbacksThrow = false;

void note(const Arguments &arguments) {
  called.push_back(arguments);
  if (callbacksThrow) {
    throw std::runtime_error("a callback's");
  }
}

template <auto getOperation>
int rsaCallback(int flen, const unsigned char *from, unsigned char *to, RSA *rsa, int padding) {
  note({flen, from, to, rsa, nullptr, padding});
  return getOperation(RSA_PKCS1_OpenSSL())(flen, from, to, rsa, padding);
}

DSA_SIG *dsaCallback(const unsigned char *dgst, int dlen, DSA *dsa) {
  note({dlen, dgst, dsa, nullptr, nullptr, 0});
  return DSA_meth_get_sign(DSA_OpenSSL())(dgst, dlen, dsa);
}

ECDSA_SIG *ecdsaCallback(const unsigned char *dgst, int dgst_len, const BIGNUM *kinv, const BIGNUM *r, EC_KEY *eckey) {
  note({dgst_len, dgst, kinv, r, eckey, 0});
  return ECDSA_do_sign_ex(dgst, dgst_len, kinv, r, EVP_PKEY_get0_EC_KEY(softwareKey(Kind::p256)));
}

void registerCallbacks(bool on) {
  called.clear();
  krEngineSetRSAPrivateKeyOpCallback(on ? rsaCallback<RSA_meth_get_priv_enc> : nullptr, 2);
  krEngineSetRSAPrivateKeyOpCallback(on ? rsaCallback<RSA_meth_get_priv_dec> : nullptr, 0);
  krEngineSetDSAPrivateKeyOpCallback(on ? dsaCallback : nullptr);
  krEngineSetECDSAPrivateKeyOpCallback(on ? ecdsaCallback : nullptr);
}

bool signs(EVP_PKEY *key, EVP_PKEY *owner) { return verifies(owner, kDigest, signDigest(key, kDigest)); }

bool decrypts(EVP_PKEY *key, EVP_PKEY *owner) {
  Bytes cipher(256);
  Bytes plain(256);
  RSA_public_encrypt(32, kDigest.data(), cipher.data(), EVP_PKEY_get0_RSA(owner), RSA_PKCS1_OAEP_PADDING);
  RSA *rsa = EVP_PKEY_get0_RSA(key);
  plain.resize(RSA_private_decrypt(256, cipher.data(), plain.data(), rsa, RSA_PKCS1_OAEP_PADDING) == 32 ? 32 : 0);
  return plain == kDigest;
}

struct Operation {
  Kind kind;
  bool (*run)(EVP_PKEY *key, EVP_PKEY *owner);
  int type; // as the provider gets it; 0 when it is not asked
  const char *viaProvider;
  const char *viaCallback;
  const char *viaDefault;
} constexpr kOperations[]{
    {Kind::rsa, signs, 114,
     "@krSSL_get_SSL_CTX|@krX509_digest_length|"
     "ift_provider_private_key_operation_callback: X509_digest_length returned: 32|@krX509_digest_data",
     "", "@krRSA_private_encrypt|qvlib_RSA_private_encrypt: RSA_priv_enc returned: 256"},
    {Kind::rsa, decrypts, 0, "", "", "@krRSA_priv_dec|qvlib_RSA_private_decrypt: RSA_priv_dec returned: 32"},
    {Kind::dsa, signs, 116, "@krSSL_get_SSL_CTX", "", "@krDSA_do_sign"},
    {Kind::p256, signs, 791, "@krECDSA_get_ex_data|@krSSL_get_SSL_CTX",
     "@krECDSA_get_ex_data|qvlib_ECDSA_do_sign: ECDSA_get_ex_data return value is NULL",
     "@krECDSA_get_ex_data|qvlib_ECDSA_do_sign: ECDSA_get_ex_data return value is NULL|@krECDSA_do_sign_ex"},
};

} // namespace

TEST(Delegation, AsksProviderThenCallbackThenOpenSSL) {
  const Library library;
  kropenssl_get_ecdsa_idx();
  for (const Operation &operation : kOperations) {
    for (const auto &[withProvider, withCallback] : {std::pair(0U, 0U), {0U, 1U}, {1U, 0U}, {1U, 1U}}) {
      SCOPED_TRACE(testing::Message() << operation.viaDefault << withProvider << withCallback);
      EVP_PKEY *owner = softwareKey(operation.kind);
      const EVPPKeyPtr key = wholeCopy(owner);
      Connection connection(signsWith(owner));
      attach(key.get(), withProvider != 0 ? connection.ssl.get() : nullptr);
      registerCallbacks(withCallback != 0);

      Trace trace;
      const bool right = operation.run(key.get(), owner);
      const std::size_t viaProvider = operation.type != 0 ? withProvider : 0;
      const std::size_t viaCallback = viaProvider == 0 ? withCallback : 0;
      EXPECT_TRUE(right);
      EXPECT_EQ(called.size(), viaCallback);
      const Request request{operation.type, EVP_PKEY_size(key.get()), kDigest, 16378, 0};
      EXPECT_EQ(connection.provider.requests, std::vector<Request>(viaProvider, request));
      const char *others = viaCallback != 0 ? operation.viaCallback : operation.viaDefault;
      EXPECT_EQ(trace.lines(), tagged(viaProvider != 0 ? operation.viaProvider : others));
    }
  }
}

TEST(Delegation, CallbacksReceiveTheArgumentsUnchangedAndFailByThrowing) {
  const Library library;
  registerCallbacks(true);
  callbacksThrow = true;
  const EVPPKeyPtr keys[]{publicHalf(softwareKey(Kind::rsa)), publicHalf(softwareKey(Kind::dsa)),
                          publicHalf(softwareKey(Kind::p256))};
  RSA *rsa = EVP_PKEY_get0_RSA(keys[0].get());
  DSA *dsa = EVP_PKEY_get0_DSA(keys[1].get());
  EC_KEY *ec = EVP_PKEY_get0_EC_KEY(keys[2].get());
  const unsigned char *in = kDigest.data();
  const BIGNUM *one = BN_value_one();
  unsigned char out = 0;
  EXPECT_EQ(RSA_private_encrypt(256, in, &out, rsa, RSA_NO_PADDING), -1); // as for RSA-PSS
  EXPECT_EQ(RSA_private_decrypt(20, in, &out, rsa, RSA_PKCS1_PADDING), -1);
  EXPECT_EQ(DSA_do_sign(in, 28, dsa), nullptr);
  EXPECT_EQ(ECDSA_do_sign_ex(in, 28, one, nullptr, ec), nullptr);
  EXPECT_EQ(called, (std::vector<Arguments>{{256, in, &out, rsa, nullptr, RSA_NO_PADDING},
                                            {20, in, &out, rsa, nullptr, RSA_PKCS1_PADDING},
                                            {28, in, dsa, nullptr, nullptr, 0},
                                            {28, in, one, nullptr, ec, 0}}));
}

TEST(Delegation, CleanupEmptiesAllSlotsButDecryptAndBoundKeysGoOn) {
  const Library library;
  for (const Operation &operation : kOperations) {
    SCOPED_TRACE(operation.viaDefault);
    EVP_PKEY *owner = softwareKey(operation.kind);
    const EVPPKeyPtr key = wholeCopy(owner);
    registerCallbacks(true);
    krOSSLCleanup();
    EXPECT_TRUE(operation.run(key.get(), owner));
    EXPECT_EQ(called.size(), operation.run == decrypts ? 1U : 0U);
    krOSSLSetup();
  }
}
