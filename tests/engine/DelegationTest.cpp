// Who carries out a private-key operation, what it is given, and what the trace says.
#include "support/Callbacks.h"
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

// A callback that notes its arguments and throws.
using Values = std::vector<std::intptr_t>;
std::vector<Values> called;
std::intptr_t valueOf(int number) { return number; }
std::intptr_t valueOf(const void *place) { return reinterpret_cast<std::intptr_t>(place); }
template <class Result, class... Arguments> Result throwing(Arguments... arguments) {
  called.push_back({valueOf(arguments)...});
  throw std::runtime_error("a callback's");
}

// The key verifies with the engine's methods, too.
bool signs(EVP_PKEY *key, EVP_PKEY *owner) {
  const Bytes signature = signDigest(key, kDigest);
  return verifies(owner, kDigest, signature) && verifies(key, kDigest, signature);
}

bool decrypts(EVP_PKEY *key, EVP_PKEY *owner) {
  Bytes cipher(256);
  Bytes plain(256);
  RSA_public_encrypt(32, kDigest.data(), cipher.data(), rsaOf(owner), RSA_PKCS1_OAEP_PADDING);
  RSA *rsa = rsaOf(key);
  plain.resize(RSA_private_decrypt(256, cipher.data(), plain.data(), rsa, RSA_PKCS1_OAEP_PADDING) == 32 ? 32 : 0);
  return plain == kDigest;
}

// And these answer what they are told to, after they have grown the key.
int claimed = 0;
Bytes answer;

int claims(int /*flen*/, const unsigned char * /*from*/, unsigned char * /*to*/, RSA *rsa, int /*padding*/) {
  if (RSA_get0_n(rsa) != nullptr) {
    BIGNUM *modulus = BN_dup(RSA_get0_n(rsa));
    BN_set_bit(modulus, 4095);
    RSA_set0_key(rsa, modulus, nullptr, nullptr);
  }
  return claimed;
}

DSA_SIG *dsaAnswer(const unsigned char * /*dgst*/, int /*dlen*/, DSA *dsa) {
  if (DSA_get0_q(dsa) != nullptr) {
    DSA_set0_pqg(dsa, BN_dup(DSA_get0_p(dsa)), BN_dup(DSA_get0_p(dsa)), BN_dup(DSA_get0_g(dsa)));
  }
  return decoded(d2i_DSA_SIG, answer);
}

ECDSA_SIG *ecdsaAnswer(const unsigned char * /*dgst*/, int /*length*/, const BIGNUM * /*kinv*/, const BIGNUM * /*r*/,
                       EC_KEY *eckey) {
  if (EC_KEY_get0_group(eckey) != nullptr) {
    EC_KEY_set_group(eckey, EC_KEY_get0_group(ecKeyOf(softwareKey(Kind::p521))));
  }
  return decoded(d2i_ECDSA_SIG, answer);
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
      delegateToCallbacks(withCallback != 0);

      Trace trace;
      const bool right = operation.run(key.get(), owner);
      const std::size_t viaProvider = operation.type != 0 ? withProvider : 0;
      const std::size_t viaCallback = viaProvider == 0 ? withCallback : 0;
      EXPECT_TRUE(right);
      EXPECT_EQ(callbacks, static_cast<int>(viaCallback));
      const Request request{operation.type, EVP_PKEY_size(key.get()), kDigest, 16378, 0};
      EXPECT_EQ(connection.provider.requests, std::vector<Request>(viaProvider, request));
      const char *others = viaCallback != 0 ? operation.viaCallback : operation.viaDefault;
      EXPECT_EQ(trace.lines(), tagged(viaProvider != 0 ? operation.viaProvider : others));
    }
  }
}

TEST(Delegation, CallbacksReceiveTheArgumentsUnchangedAndFailByThrowing) {
  const Library library;
  krEngineSetRSAPrivateKeyOpCallback(throwing, 2);
  krEngineSetRSAPrivateKeyOpCallback(throwing, 0);
  krEngineSetDSAPrivateKeyOpCallback(throwing);
  krEngineSetECDSAPrivateKeyOpCallback(throwing);
  const EVPPKeyPtr keys[]{publicHalf(softwareKey(Kind::rsa)), publicHalf(softwareKey(Kind::dsa)),
                          publicHalf(softwareKey(Kind::p256))};
  RSA *rsa = rsaOf(keys[0].get());
  DSA *dsa = dsaOf(keys[1].get());
  EC_KEY *ec = ecKeyOf(keys[2].get());
  const unsigned char *in = kDigest.data();
  const BIGNUM *one = BN_value_one();
  unsigned char out = 0;
  EXPECT_EQ(RSA_private_encrypt(256, in, &out, rsa, RSA_NO_PADDING), -1); // as for RSA-PSS
  EXPECT_EQ(RSA_private_decrypt(20, in, &out, rsa, RSA_PKCS1_PADDING), -1);
  EXPECT_EQ(DSA_do_sign(in, 28, dsa), nullptr);
  EXPECT_EQ(ECDSA_do_sign_ex(in, 28, one, nullptr, ec), nullptr);
  const Values places{valueOf(in), valueOf(&out), valueOf(rsa), valueOf(dsa), valueOf(one), valueOf(ec)};
  EXPECT_EQ(called, (std::vector<Values>{{256, places[0], places[1], places[2], RSA_NO_PADDING},
                                         {20, places[0], places[1], places[2], RSA_PKCS1_PADDING},
                                         {places[0], 28, places[3]},
                                         {places[0], 28, places[4], 0, places[5]}}));
}

// OpenSSL encodes a signature into a buffer of the key's size, whatever its length.
TEST(Delegation, SignaturesAreNoLongerThanTheKeysSize) {
  const Library library;
  const std::tuple<Kind, std::size_t> kinds[]{
      {Kind::dsa, 32}, {Kind::p256, 32}, {Kind::p521, kOpenSSL3 ? 65 : 66}}; // it knows that 521 bits need no leading 0
  const krOpenSSL::DSAMethodPtr dsaDefault(DSA_meth_dup(DSA_OpenSSL()));
  const krOpenSSL::ECKeyMethodPtr ecDefault(EC_KEY_METHOD_new(EC_KEY_OpenSSL()));
  DSA_meth_set_sign(dsaDefault.get(), dsaAnswer);
  EC_KEY_METHOD_set_sign(ecDefault.get(), nullptr, nullptr, ecdsaAnswer);
  for (const auto &[kind, full] : kinds) {
    const std::tuple<Bytes, bool> answers[]{{derSignature(full, full), true},
                                            {derSignature(full + 1, full), false},
                                            {derSignature(full, full + 1), false},
                                            {derSignature(8000, 8000), false}};
    for (const auto &[bytes, fits] : answers) {
      for (const char *way : {"provider", "callback", "default"}) {
        SCOPED_TRACE(testing::Message() << EVP_PKEY_size(softwareKey(kind)) << ' ' << bytes.size() << ' ' << way);
        const EVPPKeyPtr key = publicHalf(softwareKey(kind));
        Connection connection(writes(bytes));
        answer = bytes;
        attach(key.get(), *way == 'p' ? connection.ssl.get() : nullptr);
        krEngineSetDSAPrivateKeyOpCallback(*way == 'c' ? dsaAnswer : nullptr);
        krEngineSetECDSAPrivateKeyOpCallback(*way == 'c' ? ecdsaAnswer : nullptr);
        DSA_set_default_method(*way == 'd' ? dsaDefault.get() : DSA_OpenSSL());
        EC_KEY_set_default_method(*way == 'd' ? ecDefault.get() : EC_KEY_OpenSSL());
        EXPECT_EQ(signDigest(key.get(), kDigest), fits ? bytes : Bytes{});
      }
    }
  }
  // Keys that cannot tell their size have no room at all.
  const krOpenSSL::DSAPtr dsa(DSA_new());
  const krOpenSSL::ECKeyPtr ec(EC_KEY_new());
  const Connection connection(writes(answer));
  for (SSL *ssl : {static_cast<SSL *>(nullptr), connection.ssl.get()}) {
    DSA_set_ex_data(dsa.get(), kropenssl_get_dsa_idx(), ssl);
    EC_KEY_set_ex_data(ec.get(), kropenssl_get_ecdsa_idx(), ssl);
    EXPECT_EQ(DSA_do_sign(kDigest.data(), 32, dsa.get()), nullptr);
    EXPECT_EQ(ECDSA_do_sign(kDigest.data(), 32, ec.get()), nullptr);
  }
  DSA_set_default_method(DSA_OpenSSL());
  EC_KEY_set_default_method(EC_KEY_OpenSSL());
}

TEST(Delegation, RsaResultsAboveTheKeysSizeAreFailures) {
  const Library library;
  krEngineSetRSAPrivateKeyOpCallback(claims, 0);
  krEngineSetRSAPrivateKeyOpCallback(claims, 1);
  for (const auto &[result, judged] : {std::pair(-7, -7), {0, 0}, {1, 1}, {256, 256}, {257, -1}, {2000000000, -1}}) {
    for (const auto operation : {RSA_private_encrypt, RSA_private_decrypt}) {
      const EVPPKeyPtr key = publicHalf(softwareKey(Kind::rsa));
      claimed = result;
      EXPECT_EQ(operation(32, kDigest.data(), nullptr, rsaOf(key.get()), RSA_PKCS1_PADDING), judged);
    }
  }
  const krOpenSSL::RSAPtr blank(RSA_new());
  EXPECT_EQ(RSA_private_encrypt(32, kDigest.data(), nullptr, blank.get(), RSA_PKCS1_PADDING), -1);
  krEngineSetRSAPrivateKeyOpCallback(nullptr, 0);
}

namespace {

int rsaAgain(int flen, const unsigned char *from, unsigned char *to, RSA *rsa, int padding) {
  ++callbacks;
  return RSA_private_encrypt(flen, from, to, rsa, padding);
}

} // namespace

// As one would that signs with a key which OpenSSL 3 read after the set-up.
TEST(Delegation, CallbacksThatRunIntoThemselvesFail) {
  const Library library;
  const EVPPKeyPtr rsa = wholeCopy(softwareKey(Kind::rsa));
  const EVPPKeyPtr dsa = wholeCopy(softwareKey(Kind::dsa));
  const EVPPKeyPtr ec = wholeCopy(softwareKey(Kind::p256));
  krEngineSetRSAPrivateKeyOpCallback(rsaAgain, 1);
  krEngineSetDSAPrivateKeyOpCallback([](const unsigned char *digest, int length, DSA *key) {
    ++callbacks;
    return DSA_do_sign(digest, length, key);
  });
  krEngineSetECDSAPrivateKeyOpCallback(
      [](const unsigned char *digest, int length, const BIGNUM *, const BIGNUM *, EC_KEY *key) {
        ++callbacks;
        return ECDSA_do_sign(digest, length, key);
      });
  for (EVP_PKEY *key : {rsa.get(), dsa.get(), ec.get()}) {
    callbacks = 0;
    EXPECT_EQ(signDigest(key, kDigest), Bytes{});
    EXPECT_EQ(callbacks, 8);
  }
}

TEST(Delegation, CleanupEmptiesAllSlotsButDecryptAndBoundKeysGoOn) {
  const Library library;
  for (const Operation &operation : kOperations) {
    SCOPED_TRACE(operation.viaDefault);
    EVP_PKEY *owner = softwareKey(operation.kind);
    const EVPPKeyPtr key = wholeCopy(owner);
    delegateToCallbacks(true);
    krOSSLCleanup();
    EXPECT_TRUE(operation.run(key.get(), owner));
    EXPECT_EQ(callbacks, operation.run == decrypts ? 1 : 0);
    krOSSLSetup();
  }
}
