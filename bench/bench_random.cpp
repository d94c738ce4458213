// Random bytes through OpenSSL: the library's generator against its bound, one SHA1_Init and one 64-byte
// SHA1_Update per 20 bytes, and against OpenSSL's own generator.
#include "Bench.h"

#include <openssl/rand.h>
#include <openssl/sha.h>

#include <array>
#include <vector>

namespace {

constexpr std::size_t kBlockBytes = 20;

void setBytes(benchmark::State &state) {
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations()) * state.range(0));
}

void compressionBound(benchmark::State &state) {
  std::array<unsigned char, SHA_CBLOCK> block{};
  SHA_CTX context;
  for ([[maybe_unused]] auto _ : state) {
    for (std::size_t done = 0; done < static_cast<std::size_t>(state.range(0)); done += kBlockBytes) {
      SHA1_Init(&context);
      SHA1_Update(&context, block.data(), block.size());
      benchmark::DoNotOptimize(context);
    }
  }
  setBytes(state);
}

void drawFrom(benchmark::State &state, const RAND_METHOD *method) {
  std::vector<unsigned char> buffer(static_cast<std::size_t>(state.range(0)));
  for ([[maybe_unused]] auto _ : state) {
    method->bytes(buffer.data(), static_cast<int>(buffer.size()));
    benchmark::DoNotOptimize(buffer.data());
  }
  setBytes(state);
}

void libraryGenerator(benchmark::State &state) { drawFrom(state, RAND_get_rand_method()); }
void opensslGenerator(benchmark::State &state) { drawFrom(state, RAND_OpenSSL()); }

void sizes(benchmark::internal::Benchmark *bench) {
  for (const int size : {16, 32, 64, 256, 1024, 1 << 20}) {
    bench->Arg(size);
  }
}

BENCHMARK(compressionBound)->Apply(sizes);
BENCHMARK(libraryGenerator)->Apply(sizes);
BENCHMARK(opensslGenerator)->Apply(sizes);

} // namespace

int main(int argc, char **argv) { return runBenchmarks(argc, argv); }
