#include "support/Trace.h"

#include <sstream>

namespace krTest {

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
