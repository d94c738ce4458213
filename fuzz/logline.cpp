// The log line: any level, source, component name and message, over a platform that keeps what is written.
#include "Fuzz.h"

#include "log/LogLine.h"
#include "log/krCustomLogger.h"
#include "state/State.h"
#include "support/FakePlatform.h"

#include <limits>
#include <optional>
#include <string>

namespace {

using namespace krFuzz;
using krOpenSSL::LogLine;
namespace fake = krTest::fakePlatform;

using Text = std::optional<std::string>; // none stands for a null

Text takeText(FuzzedDataProvider &input, std::size_t most) {
  if (input.ConsumeIntegral<unsigned char>() % 8 == 1) {
    return std::nullopt;
  }
  // One text of full length is a few bytes of the input, repeated.
  std::string text = input.ConsumeBytesAsString(input.ConsumeIntegralInRange<std::size_t>(0, 200));
  const auto length = input.ConsumeBool() ? text.size() : input.ConsumeIntegralInRange<std::size_t>(0, most);
  for (std::size_t i = 0; !text.empty() && text.size() < length; ++i) {
    text += text[i];
  }
  return text.c_str(); // as far as C sees it
}

const char *pointer(const Text &text) { return text ? text->c_str() : nullptr; }

/// The line that docs/log.md describes.
std::string expectedLine(int level, int component, const std::string &file, int line, const Text &name,
                         const std::string &message) {
  std::string body = "2031/02/03 04:05:06.007 p0001 tabc " + file.substr(file.find_last_of("/\\") + 1) + ":" +
                     std::to_string(line) + " - " + (name ? "'" + *name + "' " : "") + message;
  body = body.substr(0, LogLine::kMostCharacters);
  return std::to_string(level) + ", c=" + std::to_string(component) + " " + body + " \n";
}

void resetPlatform() {
  fake::calls.clear();
  fake::written.clear();
  fake::entries["/data/Corvane/Logging"].kind = krOpenSSL::platform::EntryKind::folder;
  fake::entries["/data/Corvane/Logging"].target = krOpenSSL::platform::EntryKind::folder;
}

} // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
  FuzzedDataProvider input(data, size);
  resetPlatform();
  const int number = input.ConsumeIntegral<int>();
  const int component = input.ConsumeIntegral<int>();
  const auto threshold = input.PickValueInArray<std::uint32_t>({4, 0, 3, 5, std::numeric_limits<std::uint32_t>::max()});
  const Text file = takeText(input, 5000);
  const Text name = takeText(input, 5000);
  const Text message = takeText(input, 9000);
  krOpenSSL::state::krLogThreshold = threshold;

  krLogLine(number, component, pointer(message));
  std::string expected = expectedLine(number, component, "krCustomLogger.cpp", 363, "", message.value_or(""));
  require(fake::written == expected, "a message of the callback's is one line, taken literally");

  krLogWrite(pointer(file), number, pointer(name), message ? "%s" : nullptr, pointer(message));
  if (threshold > 3) {
    expected += expectedLine(static_cast<int>(threshold), 0, file.value_or(""), number, name, message.value_or(""));
  }
  require(fake::written == expected, "a formatted message is one line, from above the threshold");
  return 0;
}
