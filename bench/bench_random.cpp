// Random bytes through OpenSSL: the library's generator against its bound, one SHA1_Init and one 64-byte
// SHA1_Update per 20 bytes, and against OpenSSL's own generator.
#include "Bench.h"

#include <openssl/rand.h>
#include <openssl/sha.h>

namespace {

using bench::input;
using bench::output;

constexpr std::size_t kBlockBytes = 20;
constexpr std::array<std::size_t, 11> kSizes{16, 32, 64, 128, 256, 512, 1024, 4096, 16384, 65536, bench::kLargest};

// As many compressions as a generator owes that keeps the rest of its last block for the next request.
auto compressions(std::size_t size) {
  return [size, owed = std::size_t{0}, state = SHA_CTX{}]() mutable {
    for (owed += size; owed >= kBlockBytes; owed -= kBlockBytes) {
      SHA1_Init(&state);
      SHA1_Update(&state, input.data(), SHA_CBLOCK);
      benchmark::DoNotOptimize(state);
    }
    return true;
  };
}

auto drawingFrom(const RAND_METHOD *method) {
  return [method](std::size_t size) {
    return [method, size] { return method->bytes(output.data(), static_cast<int>(size)) == 1; };
  };
}

void registerAll() {
  bench::addSizes("generator/random bytes/SHA-1 bound", kSizes, compressions);
  bench::addSizes("generator/random bytes/library", kSizes, drawingFrom(RAND_get_rand_method()));
  bench::addSizes("generator/random bytes/OpenSSL", kSizes, drawingFrom(RAND_OpenSSL()));
}

} // namespace

int main(int argc, char **argv) { return bench::run(argc, argv, registerAll); }
