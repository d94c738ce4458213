// A switch into FIPS mode and back, with the wolfEngine that is in place, against the load and unload of "qvlib".
#include "Bench.h"

namespace {

auto reload() {
  return [] {
    krOpenSSLEngineUnload();
    krOpenSSLEngineLoad();
    return true;
  };
}

auto switchOnAndOff() {
  krFipsUseOpenSSLFIPS(1);
  return [] {
    const bool on = krFipsModeOn() == krOpenSSL::kFipsOk;
    krFipsModeOff();
    return on;
  };
}

void registerAll() {
  bench::add("rest/FIPS mode on and off/baseline", reload);
  bench::add("rest/FIPS mode on and off/library", switchOnAndOff);
}

} // namespace

int main(int argc, char **argv) { return bench::run(argc, argv, registerAll); }
