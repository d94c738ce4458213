// What the benchmark programs share: names of the form topic/case/contestant[/size], one operation per iteration,
// and a report on standard error, since the library's trace goes to standard output.
#pragma once

#include <krOpenSSL/krOpenSSL.h>

#include <benchmark/benchmark.h>

#include <openssl/crypto.h>

#include <array>
#include <cstddef>
#include <iostream>
#include <string>

namespace bench {

inline constexpr std::size_t kLargest = std::size_t{1} << 20U;

/// Message bytes, and room for what is made of them; shared, for benchmarks of one thread.
inline std::array<unsigned char, kLargest + 64> input{1, 2, 3};
inline std::array<unsigned char, kLargest + 64> output{};

/// Registers a benchmark of the operation that @p make returns, which answers whether it succeeded. What make
/// prepares is not timed; a failed operation fails the benchmark.
template <class Make> benchmark::internal::Benchmark *add(const std::string &name, Make make) {
  return benchmark::RegisterBenchmark(name.c_str(), [make](benchmark::State &state) {
    auto operation = make();
    for ([[maybe_unused]] auto round : state) {
      if (!operation()) {
        state.SkipWithError("the operation failed");
        break;
      }
      benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations()));
  });
}

/// As above for each size; @p make is given the size in bytes.
template <class Sizes, class Make> void addSizes(const std::string &name, const Sizes &sizes, Make make) {
  for (const std::size_t size : sizes) {
    add(name + "/" + std::to_string(size), [make, size] { return make(size); });
  }
}

/// Sets the library up, has @p registerAll add benchmarks, and runs them.
template <class Register> int run(int argc, char **argv, Register registerAll) {
  benchmark::Initialize(&argc, argv);
  if (krOSSLSetup() != 0) {
    return 1;
  }
  benchmark::AddCustomContext("openssl", OpenSSL_version(OPENSSL_VERSION));
  benchmark::AddCustomContext("compiler", KR_COMPILER);
  registerAll();
  benchmark::ConsoleReporter reporter(benchmark::ConsoleReporter::OO_Tabular);
  reporter.SetOutputStream(&std::cerr);
  reporter.SetErrorStream(&std::cerr);
  benchmark::RunSpecifiedBenchmarks(&reporter);
  krOSSLCleanup();
  return 0;
}

} // namespace bench
