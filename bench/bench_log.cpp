// A log line against what any line costs that is in the file when the call returns: opening the file,
// appending, and closing it.
#include "Bench.h"

#include "log/krCustomLogger.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <string>

namespace {

const char *const kMessage = "wolfEngine: a message of the usual length, some sixty characters";
std::filesystem::path folder;

void bareAppend(benchmark::State &state) {
  const std::filesystem::path file = folder / "bare.log";
  const std::string line = std::string(75, 'p') + kMessage + "\n";
  for ([[maybe_unused]] auto _ : state) {
    const int opened = ::open(file.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0644);
    benchmark::DoNotOptimize(::write(opened, line.data(), line.size()));
    (void)::close(opened);
  }
}

void logLine(benchmark::State &state) {
  for ([[maybe_unused]] auto _ : state) {
    krLogLine(1, 0, kMessage);
  }
}

BENCHMARK(bareAppend);
BENCHMARK(logLine);

} // namespace

int main(int argc, char **argv) {
  std::string name = (std::filesystem::temp_directory_path() / "krLogXXXXXX").string();
  // NOLINTNEXTLINE(concurrency-mt-unsafe): there is one thread
  if (::mkdtemp(name.data()) == nullptr || ::setenv("KR_PROGRAM_DATA", name.c_str(), 1) != 0) {
    return 1;
  }
  folder = std::filesystem::path(name) / "Corvane/Logging";
  std::filesystem::create_directories(folder);
  const int result = runBenchmarks(argc, argv);
  std::filesystem::remove_all(name);
  return result;
}
