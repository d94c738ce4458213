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

/// Everything that an RSA key can be asked for, and notes of what it was.
struct WholeRsa {
  krOpenSSL::KeyOperations operations() {
    return {[this](const SignRequest &request, Out out) {
              asked.push_back(request.hash);
              return signsWithKey(Kind::rsa)(request, out);
            },
            [this](const krOpenSSL::PssRequest &request, Out out) {
              asked.push_back(request.saltLength);
              EXPECT_EQ(EVP_MD_size(EVP_get_digestbynid(request.hash)), request.saltLength);
              return apply(RSA_private_encrypt, request.block, out, RSA_NO_PADDING);
            },
            [this](const krOpenSSL::DecryptRequest &request, Out out) {
              asked.push_back(-request.padding);
              return apply(RSA_private_decrypt, request.data, out, request.padding);
            }};
  }

  std::vector<int> asked;

private:
  template <class Function>
  static std::size_t apply(Function function, std::span<const unsigned char> in, Out out, int padding) {
    RSA *rsa = krOpenSSL::keyObject::rsaOf(softwareKey(Kind::rsa));
    return static_cast<std::size_t>(
        std::max(0, function(static_cast<int>(in.size()), in.data(), out.data(), rsa, padding)));
  }
};

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

TEST_F(Delegate, AnRsaKeyIsServedWhole) {
  const krOpenSSL::Library library;
  WholeRsa store;
  const DelegatedKey key(library, softwareKey(Kind::rsa), store.operations());
  const std::tuple<int, const char *, const char *, std::vector<int>> rows[]{
      // what the client offers, and what the store is asked for
      {TLS1_3_VERSION, "ALL", "PSS+SHA256", {32}},
      {TLS1_3_VERSION, "ALL", "PSS+SHA512", {64}},
      {TLS1_2_VERSION, "aRSA", "PSS+SHA384", {48}},
      {TLS1_2_VERSION, "ECDHE-RSA-CHACHA20-POLY1305", "RSA+SHA256", {NID_sha256}},
      {TLS1_2_VERSION, "kRSA", "RSA+SHA256", {-RSA_NO_PADDING}},
      {TLS1_1_VERSION, "ECDHE+aRSA", "RSA+SHA256", {NID_md5_sha1}}};
  for (const auto &[version, ciphers, algorithms, asked] : rows) {
    if (kOpenSSL3 && asked.front() == -RSA_NO_PADDING) {
      continue; // TLS of OpenSSL 3 asks for a padding that the path to engines refuses
    }
    Handshake handshake(version, ciphers, softwareKey(Kind::rsa));
    SSL_CTX_set1_sigalgs_list(handshake.clientContext.get(), algorithms);
    key.prepare(handshake.serverContext.get());
    handshake.reconnect();
    key.bindTo(handshake.server.get());
    EXPECT_EQ(handshake.run(), 2) << ciphers << algorithms;
    EXPECT_EQ(std::exchange(store.asked, {}), asked) << ciphers << algorithms;
  }
  const Keyless owner(TLS1_2_VERSION, Kind::rsa);
  key.bindTo(owner.server.get());
  RSA *rsa = krOpenSSL::keyObject::rsaOf(SSL_get_privatekey(owner.server.get()));
  std::array<unsigned char, 256> hidden{};
  std::array<unsigned char, 256> shown{};
  for (const int padding : {RSA_PKCS1_PADDING, RSA_PKCS1_OAEP_PADDING}) {
    RSA_public_encrypt(5, reinterpret_cast<const unsigned char *>("hello"), hidden.data(), rsa, padding);
    EXPECT_EQ(RSA_private_decrypt(256, hidden.data(), shown.data(), rsa, padding), 5);
    EXPECT_EQ(store.asked.back(), -padding);
  }
  EXPECT_EQ(RSA_private_decrypt(256, hidden.data(), shown.data(), rsa, 2), -1); // SSLv23's, of 1.1.1 alone
}

TEST_F(Delegate, APreparedContextIsNarrowerOrRefused) {
  const krOpenSSL::Library library;
  const std::tuple<Kind, const char *, const char *, int, int, const char *> rows[]{
      // what the context is limited to: ciphers, signature algorithms, versions
      {Kind::p256, "ECDHE-ECDSA-CHACHA20-POLY1305", "ECDSA+SHA384:RSA+SHA256", TLS1_2_VERSION, 0, ""},
      {Kind::rsa, "ALL", "RSA+SHA256:PSS+SHA256", TLS1_2_VERSION, TLS1_3_VERSION, ""},
      {Kind::p256, "aRSA", "ECDSA+SHA256", TLS1_2_VERSION, TLS1_2_VERSION, "no cipher suite is left for the key"},
      {Kind::rsa, "kRSA", "RSA+SHA256", TLS1_2_VERSION, 0, "no cipher suite is left for the key"},
      {Kind::rsa, "ALL", "PSS+SHA256:ECDSA+SHA256", TLS1_2_VERSION, 0, "no signature algorithm is left for the key"},
      {Kind::rsa, "ALL", "RSA+SHA256", TLS1_3_VERSION, 0, "no version of TLS is left for the key"},
      {Kind::p256, "ALL", "ECDSA+SHA256", TLS1_3_VERSION, TLS1_2_VERSION, "no version of TLS is left for the key"}};
  for (const auto &[kind, ciphers, algorithms, lowest, highest, reason] : rows) {
    const krOpenSSL::SSLCtxPtr context(SSL_CTX_new(TLS_server_method()));
    SSL_CTX_set_cipher_list(context.get(), ciphers);
    SSL_CTX_set1_sigalgs_list(context.get(), algorithms);
    SSL_CTX_set_min_proto_version(context.get(), lowest);
    SSL_CTX_set_max_proto_version(context.get(), highest);
    const DelegatedKey key(library, softwareKey(kind), signsWithKey(kind));
    EXPECT_EQ(refusal([&] { key.prepare(context.get()); }), reason) << ciphers << algorithms;
  }
}

TEST_F(Delegate, BothEndsOfMutualTlsSignWithDelegatedKeys) {
  const krOpenSSL::Library library;
  WholeRsa store;
  const DelegatedKey rsa(library, softwareKey(Kind::rsa), store.operations());
  const DelegatedKey onlyPkcs1(library, softwareKey(Kind::rsa), signsWithKey(Kind::rsa));
  const DelegatedKey ec(library, softwareKey(Kind::p256), signsWithKey(Kind::p256));
  const std::tuple<int, Kind, const DelegatedKey &, Kind, const DelegatedKey &> rows[]{
      {TLS1_3_VERSION, Kind::rsa, rsa, Kind::p256, ec},       {TLS1_3_VERSION, Kind::p256, ec, Kind::rsa, rsa},
      {TLS1_2_VERSION, Kind::rsa, rsa, Kind::rsa, onlyPkcs1}, {TLS1_2_VERSION, Kind::p256, ec, Kind::rsa, onlyPkcs1},
      {TLS1_2_VERSION, Kind::rsa, onlyPkcs1, Kind::p256, ec}, {TLS1_2_VERSION, Kind::p256, ec, Kind::p256, ec}};
  for (const auto &[version, serverKind, serverKey, clientKind, clientKey] : rows) {
    Handshake handshake(version, "ALL", softwareKey(serverKind));
    const Handshake other(version, "ALL", softwareKey(clientKind));
    X509 *certificate = SSL_CTX_get0_certificate(other.serverContext.get());
    X509_STORE_add_cert(SSL_CTX_get_cert_store(handshake.serverContext.get()), certificate);
    SSL_CTX_set_verify(handshake.serverContext.get(), SSL_VERIFY_PEER | SSL_VERIFY_FAIL_IF_NO_PEER_CERT, nullptr);
    SSL_CTX_use_certificate(handshake.clientContext.get(), certificate);
    serverKey.prepare(handshake.serverContext.get());
    clientKey.prepare(handshake.clientContext.get());
    handshake.reconnect();
    serverKey.bindTo(handshake.server.get());
    clientKey.bindTo(handshake.client.get());
    EXPECT_EQ(handshake.run(), 2) << version << static_cast<int>(serverKind) << static_cast<int>(clientKind);
    EXPECT_EQ(SSL_get_verify_result(handshake.server.get()), X509_V_OK);
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
      {[&] { DelegatedKey(library, softwareKey(Kind::p256), WholeRsa().operations()); }, "only RSA keys have padding"},
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
