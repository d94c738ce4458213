// The machine's settings: any content of the settings file, and the limit that its text stands for.
#include "Fuzz.h"

#include "log/LogLimit.h"
#include "platform/Platform.h"

#include <sys/mman.h>
#include <unistd.h>

#include <optional>
#include <string>

namespace {

using namespace krFuzz;

constexpr const char *kKey = R"(SOFTWARE\Corvane\Logging)";
constexpr const char *kName = "LogSizeInMB";
constexpr std::size_t kSize = 260;
const std::string kSection = "\n[HKEY_LOCAL_MACHINE\\SOFTWARE\\Corvane\\Logging]\n";
const std::string kTooLong(5000, ' '); // for a line

/// The settings file, in memory.
class File {
public:
  File() : descriptor_(::memfd_create("settings", 0)) {
    const std::string path = "/proc/self/fd/" + std::to_string(descriptor_);
    require(descriptor_ >= 0 && ::setenv("KR_REGISTRY_FILE", path.c_str(), 1) == 0, "the file can be made");
  }
  ~File() { ::close(descriptor_); }
  File(const File &) = delete;
  File &operator=(const File &) = delete;

  void put(const std::string &content) const {
    const bool put = ::ftruncate(descriptor_, 0) == 0 &&
                     ::pwrite(descriptor_, content.data(), content.size(), 0) == static_cast<ssize_t>(content.size());
    require(put, "the file can be written");
  }

private:
  int descriptor_;
};

using Value = std::optional<std::string>;

Value ask(const char *key = kKey, const char *name = kName, std::size_t size = kSize) {
  std::vector<char> text(size, 'x');
  if (!krOpenSSL::platform::registryText(key, name, text.data(), text.size())) {
    return std::nullopt;
  }
  const std::string all(text.begin(), text.end());
  require(all.find('\0') != std::string::npos, "the text ends within its room");
  return all.c_str();
}

std::string without(const std::string &text, char character) {
  std::string rest;
  for (const char c : text) {
    if (c != character) {
      rest += c;
    }
  }
  return rest;
}

void checkRoom(const Value &value) {
  for (const std::size_t room : {1U, 2U, 3U, 5U, 100U}) {
    const bool fits = value && value->size() < room;
    require(ask(kKey, kName, room) == (fits ? value : std::nullopt), "a text is given whole or not at all");
  }
}

// Whatever comes before: these lines hold no value of the key, or hold one.
void checkWhatFollows(const File &file, const std::string &content, const Value &value) {
  const struct {
    std::string lines;
    Value value;
  } rows[]{
      {"\n[HKEY_LOCAL_MACHINE\\SOFTWARE\\Corvane]\n\"LogSizeInMB\"=\"8\"", value},
      {"\n[HKEY_LOCAL_MACHINE\\SOFTWARE\\Corvane\\Logging\\x]\n\"LogSizeInMB\"=\"8\"", value},
      {"\n[HKEY_CURRENT_USERS\\SOFTWARE\\Corvane\\Logging]\n\"LogSizeInMB\"=\"8\"", value},
      {"\n[HKEY_LOCAL_MACHINE\\SOFTWARE\\Corvane\\Logging\n\"LogSizeInMB\"=\"8\"", value},
      {kSection + "\"LogSizeInM\"=\"8\"\n\"LogSizeInMBs\"=\"8\"\n;\"LogSizeInMB\"=\"8\"", value},
      {kSection + "\"LogSizeInMB\"=\"8\"" + kTooLong, value},
      {kSection + kTooLong + "\"LogSizeInMB\"=\"8\"", value},
      {kSection + "\"logsizeinmb\"=\"\\\"8\\\\\"\r\n", "\"8\\"},
      {kSection + "\"LogSizeInMB\"=dword:00000008", std::nullopt},
      {kSection + "\"LogSizeInMB\"=\"8\"8", std::nullopt},
      {kSection + "\"LogSizeInMB\"=\"8\n\"", std::nullopt},
  };
  for (const auto &row : rows) {
    file.put(content + row.lines);
    require(ask() == row.value, "what follows decides when it is the key's and the name's, and only then");
  }
}

void checkLimit(const std::string &text) {
  const std::uint32_t limit = krOpenSSL::logLimitFrom(text.c_str());
  const long number = std::strtol(text.c_str(), nullptr, 10); // saturates
  const bool usable = number >= 1;
  const auto mebibytes = static_cast<std::uint32_t>(number > 4094 ? 4094 : number);
  require(limit == (usable ? mebibytes << 20U : krOpenSSL::kDefaultLogLimitBytes), "the limit is the text's number");
}

} // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
  static const File file;
  const std::string content(data, data + size);
  file.put(content);
  const Value value = ask();
  checkRoom(value);
  checkLimit(value.value_or(content));
  if (value) {
    const std::string escaped = without(content, '\\');
    require(escaped.find(without(*value, '\\')) != std::string::npos, "a text is one of the file's");
  }
  require(!ask("SOFTWARE\nCorvane") && !ask(kKey, "Log\nSizeInMB"), "what no line can hold is not found");
  checkWhatFollows(file, content, value);
  file.put(without(content, '\n'));
  require(!ask(), "key and value are never one line, however long it is");
  return 0;
}
