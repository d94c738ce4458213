// What reaches a provider, and what becomes of its answers.
#include "support/Provider.h"
#include "support/OneError.h"
#include "support/Trace.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <iterator>
#include <numeric>
#include <stdexcept>

namespace {

using namespace krTest;

constexpr int kRsaBytes = 256;
constexpr int kCapacity = 16378;

Bytes digestOf(std::size_t length) {
  Bytes digest(length);
  std::iota(digest.begin(), digest.end(), static_cast<unsigned char>(1));
  return digest;
}

// As if of SHA-256, whatever the length.
Bytes digestInfo(const Bytes &digest) {
  Bytes der{0x30, 0, 0x30, 0x0d, 0x06, 0x09, 0x60, 0x86, 0x48, 0x01, 0x65, 0x03, 0x04, 0x02, 0x01, 0x05, 0x00, 0x04, 0};
  der[1] = static_cast<unsigned char>(17 + digest.size());
  der[18] = static_cast<unsigned char>(digest.size());
  std::copy(digest.begin(), digest.end(), std::back_inserter(der));
  return der;
}

bool throws(const Request & /*request*/, unsigned char * /*out*/, std::int32_t * /*outLength*/) {
  throw std::runtime_error("a provider's");
}

int privateEncrypt(SSL *ssl, const Bytes &input) {
  const EVPPKeyPtr key = publicHalf(softwareKey(Kind::rsa));
  attach(key.get(), ssl);
  Bytes out(kRsaBytes);
  RSA *rsa = rsaOf(key.get());
  const OneError error;
  return RSA_private_encrypt(static_cast<int>(input.size()), input.data(), out.data(), rsa, RSA_PKCS1_PADDING);
}

Bytes sign(Kind kind, SSL *ssl, const Bytes &digest) {
  const EVPPKeyPtr key = publicHalf(softwareKey(kind));
  attach(key.get(), ssl);
  const OneError error;
  return signDigest(key.get(), digest);
}

} // namespace

TEST(Provider, ReceivesRawDigestsAndTheBareDigestOfADigestInfo) {
  const Library library;
  std::vector<std::pair<Bytes, Bytes>> rows; // input and what arrives
  for (const std::size_t length : {20U, 32U, 36U, 48U, 64U}) {
    rows.emplace_back(digestOf(length), digestOf(length));
  }
  for (const std::size_t length : {16U, 20U, 28U, 32U, 48U, 64U}) { // MD5 and SHA-224 come this way only
    rows.emplace_back(digestInfo(digestOf(length)), digestOf(length));
  }
  for (const std::size_t length : {0U, 19U, 28U, 65U, 84U, 256U}) { // 256: a padded block, as RSA-PSS signs it
    rows.emplace_back(digestOf(length), Bytes{});
  }
  for (const auto &[input, digest] : rows) {
    SCOPED_TRACE(input.size());
    Connection connection(claims(kRsaBytes));
    EXPECT_EQ(privateEncrypt(connection.ssl.get(), input), digest.empty() ? -1 : kRsaBytes);
    const Request request{114, kRsaBytes, digest, kCapacity, 0};
    EXPECT_EQ(connection.provider.requests, std::vector<Request>(digest.empty() ? 0 : 1, request));
  }
}

TEST(Provider, RsaResultsFollowTheAnswer) {
  const Library library;
  const struct {
    const char *answer;
    Provider::Behaviour behaviour;
    int forRaw, forDigestInfo;
  } rows[]{
      {.answer = "fewer bytes", .behaviour = claims(1), .forRaw = 1, .forDigestInfo = 1},
      {.answer = "no bytes", .behaviour = claims(0), .forRaw = -1, .forDigestInfo = 0},
      {.answer = "failure", .behaviour = claims(kRsaBytes, false), .forRaw = 0, .forDigestInfo = 0},
      {.answer = "an exception", .behaviour = throws, .forRaw = 0, .forDigestInfo = 0},
      {.answer = "a negative length", .behaviour = claims(INT_MIN), .forRaw = -1, .forDigestInfo = -1},
      {.answer = "more than the key size", .behaviour = claims(kRsaBytes + 1), .forRaw = -1, .forDigestInfo = -1},
  };
  for (const auto &[answer, behaviour, forRaw, forDigestInfo] : rows) {
    Connection connection(behaviour);
    EXPECT_EQ(privateEncrypt(connection.ssl.get(), digestOf(32)), forRaw) << answer;
    EXPECT_EQ(privateEncrypt(connection.ssl.get(), digestInfo(digestOf(32))), forDigestInfo) << answer;
  }
}

TEST(Provider, DerSignaturesAreTakenAsTheyAreAndAnythingElseIsNone) {
  const Library library;
  for (const Kind kind : {Kind::dsa, Kind::p256, Kind::p521}) {
    EVP_PKEY *owner = softwareKey(kind);
    for (const std::size_t length : {20U, 32U, 36U, 48U, 64U}) {
      const Bytes signature = signDigest(owner, digestOf(length));
      Connection connection(writes(signature));
      EXPECT_EQ(sign(kind, connection.ssl.get(), digestOf(length)), signature);
    }
    Bytes cut = signDigest(owner, digestOf(32));
    cut.pop_back();
    const std::tuple<const char *, std::size_t, Provider::Behaviour> rows[] = {
        {"a digest of no accepted length", 28, signsWith(owner)},
        {"failure", 32, claims(kCapacity, false)},
        {"an exception", 32, throws},
        {"no bytes", 32, claims(0)},
        {"a negative length", 32, claims(INT_MIN)},
        {"more than the capacity", 32, claims(kCapacity + 1)},
        {"no DER", 32, writes(Bytes(70, 0x30))},
        {"DER of something else", 32, writes({0x30, 0x03, 0x02, 0x01, 0x05})},
        {"DER cut short", 32, writes(cut)},
    };
    for (const auto &[answer, length, behaviour] : rows) {
      Connection connection(behaviour);
      EXPECT_EQ(sign(kind, connection.ssl.get(), digestOf(length)), Bytes{}) << answer;
    }
  }
}

TEST(Provider, AConnectionWithoutContextOrRecordFails) {
  const Library library;
  ift_provider noCallback{};
  Connection connection(claims(kRsaBytes));
  Bytes blank(1 << 14); // stands for an SSL without a context
  const std::tuple<void *, ift_provider *, const char *> rows[] = {
      {blank.data(), nullptr, "|ift_provider_private_key_operation_callback: SSL_get_SSL_CTX return value is NULL"},
      {connection.ssl.get(), nullptr,
       "|ift_provider_private_key_operation_callback: SSL_CTX_get_ex_data return value is NULL"},
      {connection.ssl.get(), &noCallback, ""},
  };
  for (const auto &[ssl, record, line] : rows) {
    SSL_CTX_set_ex_data(connection.context.get(), kropenssl_get_ssl_ctx_idx(), record);
    Trace trace;
    const int result = privateEncrypt(static_cast<SSL *>(ssl), digestOf(32));
    EXPECT_EQ(result, -1);
    EXPECT_EQ(trace.lines(), tagged(std::string("@krSSL_get_SSL_CTX") + line));
    EXPECT_EQ(sign(Kind::dsa, static_cast<SSL *>(ssl), digestOf(32)), Bytes{});
    EXPECT_EQ(sign(Kind::p256, static_cast<SSL *>(ssl), digestOf(32)), Bytes{});
  }
  EXPECT_TRUE(connection.provider.requests.empty());
}
