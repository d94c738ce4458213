// The holder's log.
#include "Log.h"

#include <algorithm>
#include <array>
#include <unistd.h>

namespace krHolder {

namespace {

bool isPlain(char letter) {
  constexpr std::string_view kPlain = "._-/:+";
  return (letter >= '0' && letter <= '9') || (letter >= 'a' && letter <= 'z') || (letter >= 'A' && letter <= 'Z') ||
         kPlain.find(letter) != std::string_view::npos;
}

void append(std::string &line, std::string_view value) {
  if (!value.empty() && std::ranges::all_of(value, isPlain)) {
    line += value;
    return;
  }
  constexpr std::string_view kHex = "0123456789abcdef";
  line += '"';
  for (const char each : value) {
    const auto letter = static_cast<unsigned char>(each);
    if (letter < ' ' || letter > '~' || letter == '"' || letter == '\\') {
      line += {'\\', 'x', kHex[letter >> 4U], kHex[letter & 0xFU]};
    } else {
      line += each;
    }
  }
  line += '"';
}

} // namespace

void log(std::string_view event, std::initializer_list<std::pair<std::string_view, std::string>> values) {
  std::string line = "krholder event=";
  append(line, event);
  for (const auto &[name, value] : values) {
    if (name == "reason" && value.empty()) {
      continue;
    }
    (line += ' ').append(name) += '=';
    append(line, value);
  }
  line += '\n';
  [[maybe_unused]] const auto written = write(STDERR_FILENO, line.data(), line.size()); // nobody else could be told
}

} // namespace krHolder
