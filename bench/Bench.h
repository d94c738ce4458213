// What the benchmark programs share: they report to standard error, since the library's trace goes to
// standard output.
#pragma once

#include <krOpenSSL/krOpenSSL.h>

#include <benchmark/benchmark.h>

#include <iostream>

/// Runs the registered benchmarks with the library set up.
inline int runBenchmarks(int argc, char **argv) {
  benchmark::Initialize(&argc, argv);
  if (krOSSLSetup() != 0) {
    return 1;
  }
  benchmark::ConsoleReporter reporter(benchmark::ConsoleReporter::OO_Tabular);
  reporter.SetOutputStream(&std::cerr);
  reporter.SetErrorStream(&std::cerr);
  benchmark::RunSpecifiedBenchmarks(&reporter);
  krOSSLCleanup();
  return 0;
}
