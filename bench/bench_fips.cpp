// A switch into FIPS mode and back, with the wolfEngine that is in place, beside the load and unload of "qvlib".
#include "Bench.h"

namespace {

void ordinaryReload(benchmark::State &state) {
  for ([[maybe_unused]] auto round : state) {
    krOpenSSLEngineUnload();
    krOpenSSLEngineLoad();
  }
}

void switchOnAndOff(benchmark::State &state) {
  krFipsUseOpenSSLFIPS(1);
  for ([[maybe_unused]] auto round : state) {
    if (krFipsModeOn() != krOpenSSL::kFipsOk) {
      state.SkipWithError("wolfEngine is not in its place");
      break;
    }
    krFipsModeOff();
  }
}

BENCHMARK(ordinaryReload)->Unit(benchmark::kMicrosecond);
BENCHMARK(switchOnAndOff)->Unit(benchmark::kMicrosecond);

} // namespace

int main(int argc, char **argv) { return runBenchmarks(argc, argv); }
