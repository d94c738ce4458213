// The log's folder on this machine, empty at the start and gone at the end.
#pragma once

#include "platform/Platform.h"
#include "support/Machine.h"

#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

namespace krTest {

struct LogHome {
  LogHome() = default;
  ~LogHome() { machine::removeProgramData(root); }
  LogHome(const LogHome &) = delete;
  LogHome &operator=(const LogHome &) = delete;

  const std::filesystem::path root = machine::newProgramData();
  const std::filesystem::path folder = root / "Corvane" / "Logging";
  const std::string file = (folder / "krOpenSSL.log").string();
  const std::string old = file + ".old";
  const std::string other = (root / "Corvane" / "other").string(); ///< a file that no line may reach
};

inline void put(const std::string &file, const std::string &content) {
  std::ofstream(file, std::ios::binary) << content;
}

inline std::string contentOf(const std::string &file) {
  std::stringstream content;
  content << std::ifstream(file, std::ios::binary).rdbuf();
  return content.str();
}

/// Whether access lists that are put on files can be read back; Wine makes them of the file's mode.
bool keepsAccessLists();

/// Whether the entry has the owner and the access list, or as far as the system keeps them.
bool hasAccess(const std::string &path, const std::string &access);

constexpr const char *kProtected = "S-1-5-32-544, allow S-1-5-18 all, allow S-1-5-32-544 all, allow S-1-1-0 read";
constexpr const char *kForEveryone = ", allow S-1-1-0 all";

} // namespace krTest
