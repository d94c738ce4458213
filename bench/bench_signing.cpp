// Signatures: OpenSSL's own methods against a software key bound to the engine, which finds neither provider nor
// callback, and against keys that are delegated in the process.
#include "Bench.h"
#include "Keys.h"

#include <openssl/rsa.h>

#include <memory>
#include <utility>

namespace {

using namespace krOpenSSL;
using bench::Kind;

struct Scheme {
  const char *name;
  Kind kind;
  int padding; // of RSA
};

constexpr std::size_t kDigestBytes = 32;

auto signing(EVPPKeyPtr key, const Scheme &scheme) {
  EVPPKeyCtxPtr context(EVP_PKEY_CTX_new(key.get(), nullptr));
  EVP_PKEY_sign_init(context.get());
  EVP_PKEY_CTX_set_signature_md(context.get(), EVP_sha256());
  if (scheme.kind == Kind::rsa) {
    EVP_PKEY_CTX_set_rsa_padding(context.get(), scheme.padding);
  }
  return [context = std::move(context)] {
    std::size_t length = bench::output.size();
    return EVP_PKEY_sign(context.get(), bench::output.data(), &length, bench::input.data(), kDigestBytes) == 1;
  };
}

auto byOpenSSL(const Scheme &scheme) {
  EVP_PKEY *key = bench::ownKey(scheme.kind);
  EVP_PKEY_up_ref(key);
  return signing(EVPPKeyPtr(key), scheme);
}

auto bySoftwareKey(const Scheme &scheme) { return signing(bench::generate(scheme.kind), scheme); }

auto byProvider(const Scheme &scheme) {
  const SSLCtxPtr context(SSL_CTX_new(TLS_server_method()));
  SSLPtr connection(SSL_new(context.get()));
  bench::delegatedKey(scheme.kind).bindTo(connection.get());
  EVP_PKEY *key = SSL_get_privatekey(connection.get());
  EVP_PKEY_up_ref(key);
  auto sign = signing(EVPPKeyPtr(key), scheme);
  return [connection = std::move(connection), sign = std::move(sign)] { return sign(); };
}

auto byCallback(const Scheme &scheme) {
  auto callbacks = std::make_unique<bench::Callbacks>();
  auto sign = signing(publicHalf(bench::ownKey(scheme.kind)), scheme);
  return [callbacks = std::move(callbacks), sign = std::move(sign)] { return sign(); };
}

void addScheme(const Scheme &scheme) {
  const auto add = [&scheme](const char *contestant, auto make) {
    bench::add("signature/" + std::string(scheme.name) + "/" + contestant, [make, scheme] { return make(scheme); });
  };
  add("OpenSSL's own", byOpenSSL);
  add("software key", bySoftwareKey);
  // What a provider would have to sign is not a bare digest with RSA-PSS.
  if (scheme.padding != RSA_PKCS1_PSS_PADDING) {
    add("provider", byProvider);
  }
  add("callback", byCallback);
}

void registerAll() {
  addScheme({"RSA-2048 PKCS#1", Kind::rsa, RSA_PKCS1_PADDING});
  addScheme({"RSA-2048 PSS", Kind::rsa, RSA_PKCS1_PSS_PADDING});
  addScheme({"ECDSA P-256", Kind::ec, 0});
}

} // namespace

int main(int argc, char **argv) {
  bench::ownKey(Kind::rsa); // before set-up
  return bench::run(argc, argv, registerAll);
}
