// Reading the files of tests/vectors.
#include "support/Vectors.h"

#include <charconv>
#include <fstream>
#include <string_view>

namespace krTest {
namespace {

Bytes fromHex(std::string_view hex) {
  Bytes bytes;
  for (; hex.size() >= 2; hex.remove_prefix(2)) {
    std::from_chars(hex.data(), hex.data() + 2, bytes.emplace_back(), 16);
  }
  return bytes;
}

} // namespace

std::vector<Record> readVectors(const std::string &file) {
  constexpr std::string_view kSeparator = " = ";
  std::ifstream in(KR_TEST_VECTORS "/" + file);
  std::vector<Record> records;
  bool inRecord = false;
  for (std::string line; std::getline(in, line);) {
    const auto separator = line.starts_with('#') ? std::string::npos : line.find(kSeparator);
    if (separator != std::string::npos) {
      Record &record = inRecord ? records.back() : records.emplace_back();
      record[line.substr(0, separator)] = fromHex(std::string_view(line).substr(separator + kSeparator.size()));
    }
    inRecord = separator != std::string::npos;
  }
  return records;
}

std::string readText(const std::string &file) {
  std::ifstream in(KR_TEST_VECTORS "/" + file);
  std::string text;
  for (std::string line; std::getline(in, line);) {
    if (!line.starts_with('#')) {
      text += (text.empty() ? "" : "|") + line;
    }
  }
  return text;
}

} // namespace krTest
