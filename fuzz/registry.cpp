// The machine's settings: any content of the settings file, read into rooms of any size, and the limit that any text
// stands for.
#include "Fuzz.h"

#include "log/LogLimit.h"
#include "platform/Platform.h"

#include <sys/mman.h>
#include <unistd.h>

#include <optional>
#include <string>

namespace {

using namespace krFuzz;

/// The settings file, in memory.
int openFile() {
  const int file = ::memfd_create("settings", 0);
  ::setenv("KR_REGISTRY_FILE", ("/proc/self/fd/" + std::to_string(file)).c_str(), 1);
  return file;
}

std::optional<std::string> valueIn(std::size_t room) {
  std::vector<char> text(room, 'x');
  const bool found =
      krOpenSSL::platform::registryText(R"(SOFTWARE\Corvane\Logging)", "LogSizeInMB", text.data(), text.size());
  return found ? std::optional<std::string>(text.data()) : std::nullopt;
}

} // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
  static const int file = openFile();
  const std::string content(data, data + size);
  const bool put = ::ftruncate(file, 0) == 0 && ::pwrite(file, data, size, 0) == static_cast<ssize_t>(size);
  require(put, "the file can be written");
  const std::size_t room = size % 7 == 0 ? size % 5 + 1 : 260;
  const auto whole = valueIn(4096); // longer than any line
  const auto value = valueIn(room);
  require(value == (whole && whole->size() < room ? whole : std::nullopt), "a text is given whole or not at all");

  const std::string limit = value.value_or(content);
  const long number = std::strtol(limit.c_str(), nullptr, 10); // saturates
  const auto expected = static_cast<std::uint32_t>(std::min(number, 4094L)) << 20U;
  require(krOpenSSL::logLimitFrom(limit.c_str()) == (number < 1 ? krOpenSSL::kDefaultLogLimitBytes : expected),
          "the limit is the text's number");
  return 0;
}
