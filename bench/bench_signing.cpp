// Signatures with software keys: through the engine, which finds neither provider nor callback, against
// OpenSSL's own methods.
#include "Bench.h"

#include <krOpenSSL/krHandles.h>

#include <openssl/objects.h>

#include <array>
#include <vector>

namespace {

using namespace krOpenSSL;

constexpr std::array<unsigned char, 32> kDigest{1, 2, 3};

// Made after set-up, a key is bound to the engine; ownMethod takes it back to OpenSSL's.
void signRsa(benchmark::State &state, bool ownMethod) {
  const RSAPtr key(RSA_new());
  const BIGNUMPtr exponent(BN_new());
  BN_set_word(exponent.get(), RSA_F4);
  RSA_generate_key_ex(key.get(), 2048, exponent.get(), nullptr);
  if (ownMethod) {
    RSA_set_method(key.get(), RSA_PKCS1_OpenSSL());
  }
  std::vector<unsigned char> signature(static_cast<std::size_t>(RSA_size(key.get())));
  unsigned length = 0;
  for ([[maybe_unused]] auto _ : state) {
    benchmark::DoNotOptimize(
        RSA_sign(NID_sha256, kDigest.data(), kDigest.size(), signature.data(), &length, key.get()));
  }
}

void signEcdsa(benchmark::State &state, bool ownMethod) {
  const ECKeyPtr key(EC_KEY_new_by_curve_name(NID_X9_62_prime256v1));
  EC_KEY_generate_key(key.get());
  if (ownMethod) {
    EC_KEY_set_method(key.get(), EC_KEY_OpenSSL());
  }
  std::vector<unsigned char> signature(static_cast<std::size_t>(ECDSA_size(key.get())));
  unsigned length = 0;
  for ([[maybe_unused]] auto _ : state) {
    benchmark::DoNotOptimize(
        ECDSA_sign(0, kDigest.data(), static_cast<int>(kDigest.size()), signature.data(), &length, key.get()));
  }
}

BENCHMARK_CAPTURE(signRsa, openssl, true);
BENCHMARK_CAPTURE(signRsa, engine, false);
BENCHMARK_CAPTURE(signEcdsa, openssl, true);
BENCHMARK_CAPTURE(signEcdsa, engine, false);

} // namespace

int main(int argc, char **argv) { return runBenchmarks(argc, argv); }
