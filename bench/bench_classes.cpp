// The crypto classes against the raw OpenSSL calls they stand for.
#include "Bench.h"

#include <openssl/evp.h>
#include <openssl/hmac.h>

#include <array>
#include <vector>

namespace {

constexpr std::array<unsigned char, 32> kKey{1, 2, 3};

std::vector<unsigned char> buffer(const benchmark::State &state) {
  return std::vector<unsigned char>(static_cast<std::size_t>(state.range(0)) + 8, 0x5a);
}

void digestRaw(benchmark::State &state) {
  const auto data = buffer(state);
  std::array<unsigned char, 32> out{};
  for ([[maybe_unused]] auto _ : state) {
    EVP_MD_CTX *context = EVP_MD_CTX_new();
    EVP_MD_CTX_set_flags(context, EVP_MD_CTX_FLAG_NON_FIPS_ALLOW);
    EVP_DigestInit_ex(context, EVP_sha256(), nullptr);
    EVP_DigestUpdate(context, data.data(), static_cast<std::size_t>(state.range(0)));
    EVP_DigestFinal_ex(context, out.data(), nullptr);
    EVP_MD_CTX_free(context);
    benchmark::DoNotOptimize(out);
  }
}

void digestClass(benchmark::State &state) {
  const auto data = buffer(state);
  std::array<unsigned char, 32> out{};
  kroSHA256 hash;
  for ([[maybe_unused]] auto _ : state) {
    hash(out.data(), data.data(), static_cast<std::uint64_t>(state.range(0)));
    benchmark::DoNotOptimize(out);
  }
}

void hmacRaw(benchmark::State &state) {
  const auto data = buffer(state);
  std::array<unsigned char, 32> out{};
  HMAC_CTX *context = HMAC_CTX_new();
  HMAC_Init_ex(context, kKey.data(), kKey.size(), EVP_sha256(), nullptr);
  for ([[maybe_unused]] auto _ : state) {
    HMAC_Init_ex(context, nullptr, 0, EVP_sha256(), nullptr);
    HMAC_Update(context, data.data(), static_cast<std::size_t>(state.range(0)));
    HMAC_Final(context, out.data(), nullptr);
    benchmark::DoNotOptimize(out);
  }
  HMAC_CTX_free(context);
}

void hmacClass(benchmark::State &state) {
  const auto data = buffer(state);
  std::array<unsigned char, 32> out{};
  kroHMAC<kroSHA256> hmac;
  hmac.SetKey(kKey.data(), kKey.size());
  for ([[maybe_unused]] auto _ : state) {
    hmac.Init();
    hmac.Update(data.data(), static_cast<std::uint64_t>(state.range(0)));
    hmac.Final(out.data());
    benchmark::DoNotOptimize(out);
  }
}

// A new object, whose two accessors write four trace lines.
void hmacObject(benchmark::State &state) {
  const auto data = buffer(state);
  std::array<unsigned char, 32> out{};
  for ([[maybe_unused]] auto _ : state) {
    kroHMAC<kroSHA256> hmac;
    hmac(kKey.data(), kKey.size(), data.data(), static_cast<std::uint64_t>(state.range(0)), out.data());
    benchmark::DoNotOptimize(out);
  }
}

void hmacObjectRaw(benchmark::State &state) {
  const auto data = buffer(state);
  std::array<unsigned char, 32> out{};
  for ([[maybe_unused]] auto _ : state) {
    HMAC_CTX *context = HMAC_CTX_new();
    HMAC_Init_ex(context, kKey.data(), kKey.size(), EVP_sha256(), nullptr);
    HMAC_Update(context, data.data(), static_cast<std::size_t>(state.range(0)));
    HMAC_Final(context, out.data(), nullptr);
    HMAC_CTX_free(context);
    benchmark::DoNotOptimize(out);
  }
}

void aesCbcRaw(benchmark::State &state) {
  auto data = buffer(state);
  int written = 0;
  for ([[maybe_unused]] auto _ : state) {
    EVP_CIPHER_CTX *context = EVP_CIPHER_CTX_new();
    EVP_CipherInit_ex(context, EVP_aes_256_cbc(), nullptr, kKey.data(), kKey.data(), 1);
    EVP_CIPHER_CTX_set_padding(context, 0);
    EVP_CipherUpdate(context, data.data(), &written, data.data(), static_cast<int>(state.range(0)));
    EVP_CIPHER_CTX_free(context);
    benchmark::DoNotOptimize(data.data());
  }
}

void aesCbcClass(benchmark::State &state) {
  auto data = buffer(state);
  for ([[maybe_unused]] auto _ : state) {
    kroAESCipher<256>::Encrypt(data.data(), kKey.data(), kKey.data(), data.data(),
                               static_cast<std::uint64_t>(state.range(0)));
    benchmark::DoNotOptimize(data.data());
  }
}

void wrapRaw(benchmark::State &state) {
  const auto in = buffer(state);
  auto out = buffer(state);
  EVP_CIPHER_CTX *context = EVP_CIPHER_CTX_new();
  EVP_CIPHER_CTX_set_flags(context, EVP_CIPHER_CTX_FLAG_WRAP_ALLOW);
  EVP_CipherInit_ex(context, EVP_aes_256_wrap(), nullptr, kKey.data(), nullptr, 1);
  int written = 0;
  for ([[maybe_unused]] auto _ : state) {
    EVP_CipherUpdate(context, out.data(), &written, in.data(), static_cast<int>(state.range(0)));
    benchmark::DoNotOptimize(out.data());
  }
  EVP_CIPHER_CTX_free(context);
}

void wrapClass(benchmark::State &state) {
  const auto in = buffer(state);
  auto out = buffer(state);
  kroAESWrap wrap;
  wrap.SetEncryptKey(kKey.data(), kKey.size());
  for ([[maybe_unused]] auto _ : state) {
    wrap.Encrypt(out.data(), in.data(), static_cast<std::uint64_t>(state.range(0)), nullptr);
    benchmark::DoNotOptimize(out.data());
  }
}

BENCHMARK(digestRaw)->Arg(16)->Arg(16384);
BENCHMARK(digestClass)->Arg(16)->Arg(16384);
BENCHMARK(hmacRaw)->Arg(16)->Arg(16384);
BENCHMARK(hmacClass)->Arg(16)->Arg(16384);
BENCHMARK(hmacObjectRaw)->Arg(16);
BENCHMARK(hmacObject)->Arg(16);
BENCHMARK(aesCbcRaw)->Arg(16)->Arg(16384);
BENCHMARK(aesCbcClass)->Arg(16)->Arg(16384);
BENCHMARK(wrapRaw)->Arg(32)->Arg(4096);
BENCHMARK(wrapClass)->Arg(32)->Arg(4096);

} // namespace

int main(int argc, char **argv) { return runBenchmarks(argc, argv); }
