// Taking the standard output apart.
#include "support/Trace.h"

#include <gtest/gtest.h>

#include <sstream>

namespace krTest {

Lines Trace::lines() const {
  text_ += testing::internal::GetCapturedStdout();
  testing::internal::CaptureStdout();
  Lines lines;
  std::istringstream stream(text_);
  for (std::string line; std::getline(stream, line);) {
    lines.push_back(line + "\n");
  }
  return lines;
}

void Trace::clear() {
  lines();
  text_.clear();
}

Lines tagged(const std::string &messages) {
  Lines lines;
  std::istringstream stream(messages);
  for (std::string message; std::getline(stream, message, '|');) {
    if (message.starts_with('@')) {
      lines.push_back("krOpenSSL Start - " + message.substr(1) + "\n");
      message.replace(0, 1, "End - ");
    }
    lines.push_back("krOpenSSL " + message + "\n");
  }
  return lines;
}

} // namespace krTest
