// The layer for C++ callers: whole handshakes through it, what it refuses, and how long things live.
#include "support/Handshake.h"
#include "support/OneError.h"

#include <krOpenSSL/krDelegate.hpp>

#include <gtest/gtest.h>

#include <algorithm>
#include <stdexcept>
#include <thread>

namespace {

using namespace krTest;
using krOpenSSL::DelegatedKey;
using krOpenSSL::DelegateError;
using krOpenSSL::Signer;
using krOpenSSL::SignRequest;
using Out = std::span<unsigned char>;

Signer signsWithKey(Kind kind) {
  return [kind](const SignRequest &request, Out out) {
    const Bytes signature = signDigest(softwareKey(kind), {request.digest.begin(), request.digest.end()});
    std::ranges::copy(signature, out.begin());
    return signature.size();
  };
}

/// A handshake whose server has a certificate and no key at all.
struct Keyless : Handshake {
  Keyless(int version, Kind kind) : Handshake(version, "ALL", softwareKey(kind)) {
    SSL_certs_clear(server.get());
    SSL_use_certificate(server.get(), SSL_CTX_get0_certificate(serverContext.get()));
    SSL_set1_sigalgs_list(server.get(), "RSA+SHA256:RSA+SHA1:ECDSA+SHA256:DSA+SHA256");
  }
};

/// The software keys, made before the library is up.
struct Delegate : testing::Test {
  Delegate() { std::ranges::for_each(kKinds, softwareKey); }
};

std::string refusal(const std::function<void()> &call) {
  try {
    call();
    return "";
  } catch (const DelegateError &error) {
    return error.what();
  }
}

} // namespace

TEST_F(Delegate, ConnectionsShakeHandsAfterTheKeyObjectIsGone) {
  const krOpenSSL::Library library;
  const std::tuple<int, Kind, int> rows[]{{TLS1_3_VERSION, Kind::p256, NID_sha256},
                                          {TLS1_2_VERSION, Kind::p384, NID_sha256},
                                          {TLS1_2_VERSION, Kind::rsa, NID_sha256},
                                          {TLS1_1_VERSION, Kind::rsa, NID_md5_sha1},
                                          {TLS1_2_VERSION, Kind::dsa, NID_sha256}};
  for (const auto &[version, kind, hash] : rows) {
    const Keyless handshake(version, kind);
    std::vector<int> hashes;
    DelegatedKey(library, softwareKey(kind),
                 [&hashes, kind = kind, sign = signsWithKey(kind)](const SignRequest &request, Out out) {
                   hashes.push_back(request.hash);
                   EXPECT_EQ(out.size(), static_cast<std::size_t>(EVP_PKEY_size(softwareKey(kind))));
                   return sign(request, out);
                 })
        .bindTo(handshake.server.get());
    EXPECT_EQ(handshake.run(), 2) << version;
    EXPECT_EQ(hashes, std::vector{hash});
  }
}

TEST_F(Delegate, SignersThatDoNotSignFailTheHandshakeAndNothingElse) {
  const krOpenSSL::Library library;
  const Signer rows[]{[](const SignRequest &, Out) -> std::size_t { throw std::runtime_error("the key store's"); },
                      [](const SignRequest &, Out) { return std::size_t{0}; },
                      [](const SignRequest &, Out out) { return out.size() + 1; },
                      [](const SignRequest &, Out) { return std::size_t{1} << 32U | 256U; }};
  for (const Kind kind : {Kind::rsa, Kind::p256}) {
    for (const Signer &signer : rows) {
      const Keyless handshake(TLS1_2_VERSION, kind);
      DelegatedKey(library, softwareKey(kind), signer).bindTo(handshake.server.get());
      EXPECT_EQ(handshake.run(), 0);
    }
  }
}

TEST_F(Delegate, ASignersErrorsStayOnlyWhenItFails) {
  const krOpenSSL::Library library;
  const Bytes digest(32, 0x2b);
  for (const bool succeeds : {true, false}) {
    for (const int entries : {1, 2, 20}) { // more than the queue holds
      const krOpenSSL::SSLCtxPtr context(SSL_CTX_new(TLS_server_method()));
      const krOpenSSL::SSLPtr ssl(SSL_new(context.get()));
      DelegatedKey(library, softwareKey(Kind::p256), [&](const SignRequest &request, Out out) {
        EXPECT_EQ(ERR_peek_error(), 0U); // whatever was there before
        ERR_set_mark();
        ERR_pop_to_mark();
        for (int entry = 0; entry < entries; ++entry) {
          ERR_put_error(ERR_LIB_USER, 0, 100 + entry, __FILE__, __LINE__);
          ERR_add_error_data(1, "the key store's reason");
          ERR_set_mark();
        }
        return succeeds ? signsWithKey(Kind::p256)(request, out) : 0;
      }).bindTo(ssl.get());
      if (succeeds) {
        const OneError error;
        EXPECT_FALSE(signDigest(SSL_get_privatekey(ssl.get()), digest).empty());
      } else {
        ERR_put_error(ERR_LIB_USER, 0, 1, __FILE__, __LINE__);
        signDigest(SSL_get_privatekey(ssl.get()), digest);
        EXPECT_EQ(ERR_GET_REASON(ERR_peek_error()), entries < 20 ? 1 : 105); // a ring of 15
        const char *reason = nullptr;
        EXPECT_EQ(ERR_GET_REASON(ERR_peek_last_error_line_data(nullptr, nullptr, &reason, nullptr)), 99 + entries);
        EXPECT_STREQ(reason, "the key store's reason");
        ERR_clear_error();
      }
    }
  }
}

TEST_F(Delegate, AContextKeepsTheSignerUntilItsLastConnectionIsGone) {
  const krOpenSSL::Library library;
  const auto token = std::make_shared<int>();
  krOpenSSL::SSLCtxPtr context(SSL_CTX_new(TLS_server_method()));
  krOpenSSL::SSLPtr ssl(SSL_new(context.get()));
  const auto bind = [&, token](Kind kind) {
    const DelegatedKey key(library, softwareKey(kind), [token](const SignRequest &, Out) { return std::size_t{0}; });
    key.bindTo(ssl.get());
  };
  for (const Kind kind : {Kind::rsa, Kind::dsa, Kind::p256}) { // one of each type
    bind(kind);
  }
  const auto refused = token.use_count();
  EXPECT_EQ(refusal([&] { bind(Kind::p384); }), "another key of this type signs for the context");
  EXPECT_EQ(token.use_count(), refused);
  context.reset();
  EXPECT_EQ(token.use_count(), refused);
  ssl.reset();
  EXPECT_EQ(token.use_count(), 2); // ours and the function's
}

TEST_F(Delegate, APreparedContextShakesHandsWhateverTheClientOffers) {
  const krOpenSSL::Library library;
  const struct {
    Kind kind;
    int offered, agreed; // the highest versions; 0: no handshake
  } rows[]{{.kind = Kind::rsa, .offered = TLS1_3_VERSION, .agreed = TLS1_2_VERSION},
           {.kind = Kind::rsa, .offered = TLS1_1_VERSION, .agreed = 0},
           {.kind = Kind::dsa, .offered = TLS1_3_VERSION, .agreed = TLS1_2_VERSION},
           {.kind = Kind::p256, .offered = TLS1_3_VERSION, .agreed = TLS1_3_VERSION},
           {.kind = Kind::p521, .offered = TLS1_2_VERSION, .agreed = TLS1_2_VERSION}};
  for (const auto &[kind, offered, agreed] : rows) {
    Handshake handshake(TLS1_2_VERSION, "ALL", softwareKey(kind));
    SSL_CTX_set_max_proto_version(handshake.clientContext.get(), offered);
    SSL_CTX_set_min_proto_version(handshake.clientContext.get(), 0);
    SSL_CTX_set_max_proto_version(handshake.serverContext.get(), 0);
    const DelegatedKey key(library, softwareKey(kind), signsWithKey(kind));
    key.prepare(handshake.serverContext.get());
    handshake.reconnect();
    key.bindTo(handshake.server.get());
    EXPECT_EQ(handshake.run(), agreed != 0 ? 2 : 0);
    if (agreed != 0) {
      EXPECT_EQ(SSL_version(handshake.client.get()), agreed);
    }
  }
}

TEST_F(Delegate, RefusesWhatCannotSign) {
  const krOpenSSL::Library library;
  const DelegatedKey key(library, softwareKey(Kind::p384), signsWithKey(Kind::p384));
  const Keyless ofAnotherKey(TLS1_2_VERSION, Kind::p256);
  const Connection foreign(claims(0));
  const EVPPKeyPtr empty(EVP_PKEY_new());
  const std::pair<std::function<void()>, const char *> rows[]{
      {[&] { DelegatedKey(library, nullptr, signsWithKey(Kind::rsa)); }, "a key is missing"},
      {[&] { DelegatedKey(library, empty.get(), signsWithKey(Kind::rsa)); },
       "only RSA, DSA and EC keys can be delegated"},
      {[&] { DelegatedKey(library, softwareKey(Kind::rsa), nullptr); }, "a signer is missing"},
      {[&] { key.bindTo(nullptr); }, "a connection is missing"},
      {[&] { key.prepare(nullptr); }, "a context is missing"},
      {[&] { key.bindTo(foreign.ssl.get()); }, "the context carries another provider's record"},
      {[&] { key.bindTo(ofAnotherKey.server.get()); }, "the connection refuses the key"}};
  for (const auto &[call, reason] : rows) {
    EXPECT_EQ(refusal(call), reason);
  }
  // The refused key has not taken the place of the right one.
  const DelegatedKey right(library, softwareKey(Kind::p256), signsWithKey(Kind::p256));
  const krOpenSSL::SSLPtr second(SSL_new(ofAnotherKey.serverContext.get()));
  EXPECT_EQ(refusal([&] { right.bindTo(second.get()); }), "");

  ENGINE *stranger = ENGINE_new();
  ENGINE_set_id(stranger, "stranger");
  ENGINE_set_EC(stranger, EC_KEY_OpenSSL());
  for (const bool served : {false, true}) { // by no engine, by a stranger
    krOpenSSLEngineUnload();
    EXPECT_EQ(served ? ENGINE_set_default_EC(stranger) : 1, 1);
    EXPECT_EQ(refusal([&] { right.bindTo(second.get()); }), "no engine that delegates serves this key");
  }
  ENGINE_unregister_EC(stranger);
  ENGINE_free(stranger);
}

TEST_F(Delegate, ThreadsBindConnectionsOfOneContext) {
  const krOpenSSL::Library library;
  const krOpenSSL::SSLCtxPtr context(SSL_CTX_new(TLS_server_method()));
  const DelegatedKey keys[]{{library, softwareKey(Kind::rsa), signsWithKey(Kind::rsa)},
                            {library, softwareKey(Kind::p256), signsWithKey(Kind::p256)}};
  std::vector<std::jthread> threads;
  for (std::size_t i = 0; i < 8; ++i) {
    threads.emplace_back([&, i] {
      const Bytes digest(32, 0x2b);
      const Kind kind = i % 2 == 0 ? Kind::rsa : Kind::p256;
      for (int turn = 0; turn < 20; ++turn) {
        const krOpenSSL::SSLPtr ssl(SSL_new(context.get()));
        keys[i % 2].bindTo(ssl.get());
        EXPECT_TRUE(verifies(softwareKey(kind), digest, signDigest(SSL_get_privatekey(ssl.get()), digest)));
      }
    });
  }
}
