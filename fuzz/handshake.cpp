// Whole TLS handshakes in memory over a lying store, at the server's end and, with client certificates, at both: they
// finish with the real keys' signatures, or fail.
#include "LyingStore.h"

#include <array>
#include <optional>

namespace {

using namespace krFuzz;
using namespace krOpenSSL;
using store::Way;

EVPPKeyPtr generate(int type) {
  EVP_PKEY *key = nullptr;
  const EVPPKeyCtxPtr context(EVP_PKEY_CTX_new_id(type, nullptr));
  EVP_PKEY_keygen_init(context.get());
  EVP_PKEY_CTX_set_rsa_keygen_bits(context.get(), 1024);
  EVP_PKEY_CTX_set_ec_paramgen_curve_nid(context.get(), NID_X9_62_prime256v1);
  EVP_PKEY_keygen(context.get(), &key);
  return EVPPKeyPtr(key);
}

X509Ptr certify(EVP_PKEY *key) {
  constexpr long kLifeSeconds = 3600L * 24;
  X509Ptr certificate(X509_new());
  X509_gmtime_adj(X509_getm_notBefore(certificate.get()), -kLifeSeconds);
  X509_gmtime_adj(X509_getm_notAfter(certificate.get()), kLifeSeconds);
  X509_set_pubkey(certificate.get(), key);
  X509_sign(certificate.get(), key, EVP_sha256());
  return certificate;
}

/// The contexts of one key, which serve both ends.
struct Party {
  EVPPKeyPtr key; // none for a DelegatedKey, which makes one for each connection
  Way way;
  bool decrypts; // by callback
  std::optional<DelegatedKey> delegated;
  SSLCtxPtr context{SSL_CTX_new(TLS_method())};
};

class World {
public:
  World() {
    store::rsaKey = generate(EVP_PKEY_RSA); // before the set-up: OpenSSL's own
    store::ecKey = generate(EVP_PKEY_EC);
    library_.emplace();
    certificates_ = {certify(store::rsaKey.get()), certify(store::ecKey.get())};
    for (const Way way : {Way::provider, Way::callback}) {
      add(publicHalves(), way, true);
      add(store::withWolfEngine(publicHalves), way, false);
    }
    add(publicHalves(), Way::delegate, true);
    store::registerCallbacks();
  }

  std::vector<Party> parties; // RSA and EC by turns

private:
  static std::vector<EVPPKeyPtr> publicHalves() {
    std::vector<EVPPKeyPtr> halves;
    halves.push_back(publicHalf(store::rsaKey.get()));
    halves.push_back(publicHalf(store::ecKey.get()));
    return halves;
  }

  void add(std::vector<EVPPKeyPtr> keys, Way way, bool decrypts) {
    for (std::size_t which = 0; which < keys.size(); ++which) {
      Party party{std::move(keys[which]), way, decrypts && which == 0, std::nullopt};
      SSL_CTX *context = party.context.get();
      SSL_CTX_set_security_level(context, 0);
      SSL_CTX_set_session_cache_mode(context, SSL_SESS_CACHE_OFF);
      SSL_CTX_set_options(context, SSL_OP_NO_TICKET);
      SSL_CTX_set_num_tickets(context, 0);
      SSL_CTX_set1_groups_list(context, "X25519:P-256");
      // With PKCS#1 first, which a provider can do, and PSS, which it cannot, for TLS 1.3.
      SSL_CTX_set1_sigalgs_list(context, "RSA+SHA256:ECDSA+SHA256:RSA-PSS+SHA256");
      SSL_CTX_use_certificate(context, certificates_[which].get());
      for (const X509Ptr &certificate : certificates_) {
        X509_STORE_add_cert(SSL_CTX_get_cert_store(context), certificate.get());
      }
      if (way == Way::delegate) {
        party.delegated.emplace(store::delegated(*library_, (which == 0 ? store::rsaKey : store::ecKey).get()));
      } else {
        SSL_CTX_use_PrivateKey(context, party.key.get());
      }
      if (way == Way::provider) {
        SSL_CTX_set_ex_data(context, kropenssl_get_ssl_ctx_idx(), &store::record);
      }
      parties.push_back(std::move(party));
    }
  }

  std::optional<Library> library_;
  std::array<X509Ptr, 2> certificates_;
};

struct Setting {
  int version;
  bool encrypts; // the client the first secret with the server's RSA key, in TLS 1.2
  bool isMutual;
};

SSLPtr connect(const Party &party, const Setting &setting) {
  SSLPtr ssl(SSL_new(party.context.get()));
  SSL_set_min_proto_version(ssl.get(), setting.version);
  SSL_set_max_proto_version(ssl.get(), setting.version);
  SSL_set_cipher_list(ssl.get(), setting.encrypts ? "AES128-SHA" : "ECDHE+AESGCM:ECDHE+AES");
  if (party.way == Way::delegate) {
    party.delegated->bindTo(ssl.get());
  } else if (party.way == Way::provider) {
    require(detail::nameConnection(party.key.get(), ssl.get()), "an engine that delegates serves the key");
  }
  return ssl;
}

enum class Progress { under_way, finished, failed };

/// What a program goes by.
Progress advance(SSL *ssl) {
  const int result = SSL_do_handshake(ssl);
  const bool goesOn = result == 1 || SSL_get_error(ssl, result) == SSL_ERROR_WANT_READ;
  return !goesOn ? Progress::failed : result == 1 ? Progress::finished : Progress::under_way;
}

Progress shakeHands(const Party &serving, const Party &calling, const Setting &setting) {
  const SSLPtr server = connect(serving, setting);
  const SSLPtr client = connect(calling, setting);
  SSL_set_accept_state(server.get());
  SSL_set_connect_state(client.get());
  SSL_set_verify(client.get(), SSL_VERIFY_PEER, nullptr);
  if (setting.isMutual) {
    SSL_set_verify(server.get(), SSL_VERIFY_PEER | SSL_VERIFY_FAIL_IF_NO_PEER_CERT, nullptr);
  }
  BIO *serverEnd = nullptr;
  BIO *clientEnd = nullptr;
  BIO_new_bio_pair(&serverEnd, 0, &clientEnd, 0);
  SSL_set_bio(server.get(), serverEnd, serverEnd);
  SSL_set_bio(client.get(), clientEnd, clientEnd);
  for (int turn = 0; turn < kMostSteps; ++turn) {
    const Progress ours = advance(client.get());
    const Progress theirs = ours != Progress::failed ? advance(server.get()) : ours;
    if (theirs == Progress::failed || (ours == Progress::finished && theirs == Progress::finished)) {
      return theirs;
    }
  }
  return Progress::under_way;
}

} // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
  static const World world;
  Input input(data, size);
  store::startOver(input);
  const auto takeParty = [&] { return input.ConsumeIntegralInRange<std::size_t>(0, world.parties.size() - 1); };
  const std::size_t serving = takeParty();
  const std::size_t calling = takeParty();
  Setting setting{input.PickValueInArray({TLS1_3_VERSION, TLS1_2_VERSION, TLS1_VERSION}), oneIn(input, 4),
                  oneIn(input, 4)};
  const auto isRsa = [](std::size_t which) { return which % 2 == 0; };
  const auto hasNoPss = [&](std::size_t which) { return isRsa(which) && world.parties[which].way != Way::callback; };
  if (setting.version == TLS1_3_VERSION && (hasNoPss(serving) || (setting.isMutual && hasNoPss(calling)))) {
    setting.version = TLS1_2_VERSION;
  }
  setting.encrypts = setting.encrypts && world.parties[serving].decrypts && setting.version != TLS1_3_VERSION;

  const Progress end = shakeHands(world.parties[serving], world.parties[calling], setting);
  require(end != Progress::under_way, "a handshake ends");
  require(end != Progress::finished || (!store::lied && store::asked == (setting.isMutual ? 2 : 1)),
          "a finished handshake is signed by the real keys");
  const auto takesErrorsBack = [&](std::size_t which) { return world.parties[which].way == Way::delegate; };
  const bool isUndisturbed = !store::raised || (takesErrorsBack(serving) && !setting.encrypts &&
                                                (!setting.isMutual || takesErrorsBack(calling)));
  require(end == Progress::finished || store::lied || !isUndisturbed, "the real keys' signatures finish a handshake");
  ERR_clear_error();
  return 0;
}
