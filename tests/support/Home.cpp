// Folders, files and settings, made for a test and removed with it.
#include "support/Home.h"

#include <fstream>
#include <sstream>

namespace krTest {

void put(const std::filesystem::path &file, const std::string &content) {
  std::ofstream(file, std::ios::binary) << content;
}

std::string contentOf(const std::filesystem::path &file) {
  std::stringstream content;
  content << std::ifstream(file, std::ios::binary).rdbuf();
  return content.str();
}

std::vector<std::string> linesOf(const std::filesystem::path &file) {
  std::vector<std::string> lines;
  std::ifstream stream(file, std::ios::binary);
  for (std::string line; std::getline(stream, line);) {
    lines.push_back(line);
  }
  return lines;
}

Home::Home() {
  put(target, "untouched");
  put(settings, "[HKEY_LOCAL_MACHINE\\SOFTWARE\\Corvane\\Logging]\n\"LogSizeInMB\"=\"1\"\n");
  machine::setVariable("KR_REGISTRY_FILE", settings.string().c_str());
}

} // namespace krTest
