// A line of the log against what any line costs that is in the file when the call returns, and a line of the
// trace against printf.
#include "Bench.h"

#include "accessors/krTraceLog.h"
#include "log/krCustomLogger.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>

namespace {

const char *const kMessage = "wolfEngine: a message of the usual length, some sixty characters";

auto bareAppend(const std::filesystem::path &file) {
  return [file] {
    return [file, line = std::string(75, 'p') + kMessage + "\n"] {
      const int opened = ::open(file.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0644);
      const bool written = ::write(opened, line.data(), line.size()) == static_cast<ssize_t>(line.size());
      return ::close(opened) == 0 && written;
    };
  };
}

// The log drops what it cannot write, and says nothing: so the file is looked for.
auto logLine(const std::filesystem::path &file) {
  return [file] {
    krLogLine(1, 0, kMessage);
    return [lands = std::filesystem::exists(file)] {
      krLogLine(1, 0, kMessage);
      return lands;
    };
  };
}

auto print() {
  return [] { return std::printf("%s Start - %s\n", krOpenSSL::kTraceTag, "krSSL_get_SSL_CTX") > 0; };
}

auto traceLine() {
  return [] { return krTraceLog(krOpenSSL::kTraceTag, "Start - %s", "krSSL_get_SSL_CTX") > 0; };
}

auto traceStep() {
  return [] {
    krOpenSSL::traceStep("Start", "krSSL_get_SSL_CTX");
    return true;
  };
}

} // namespace

int main(int argc, char **argv) {
  std::string name = (std::filesystem::temp_directory_path() / "krLogXXXXXX").string();
  // NOLINTNEXTLINE(concurrency-mt-unsafe): there is one thread
  if (::mkdtemp(name.data()) == nullptr || ::setenv("KR_PROGRAM_DATA", name.c_str(), 1) != 0) {
    return 1;
  }
  const std::filesystem::path folder = std::filesystem::path(name) / "Corvane/Logging";
  std::filesystem::create_directories(folder);
  const int result = bench::run(argc, argv, [&folder] {
    bench::add("rest/log line/baseline", bareAppend(folder / "bare.log"));
    bench::add("rest/log line/library", logLine(folder / "krOpenSSL.log"));
    bench::add("rest/trace line/baseline", print);
    bench::add("rest/trace line/library", traceLine);
    bench::add("rest/trace line around an accessor/baseline", print);
    bench::add("rest/trace line around an accessor/library", traceStep);
  });
  std::filesystem::remove_all(name);
  return result;
}
