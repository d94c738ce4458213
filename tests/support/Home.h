// A place of the test's own for the log and the machine's settings, and files to look at.
#pragma once

#include "support/Machine.h"

#include <string>
#include <vector>

namespace krTest {

constexpr std::uintmax_t kMiB = std::uintmax_t{1} << 20U;

void put(const std::filesystem::path &file, const std::string &content);
std::string contentOf(const std::filesystem::path &file);
std::vector<std::string> linesOf(const std::filesystem::path &file);

/// Makes the log's folder, empty, and points the library at it and, on posix/, at settings that rotate the log at one
/// MiB; before the first line of the process.
struct Home {
  Home();
  ~Home() { machine::removeProgramData(root); }
  Home(const Home &) = delete;
  Home &operator=(const Home &) = delete;

  const std::filesystem::path root = machine::newProgramData();
  const std::filesystem::path folder = root / "Corvane" / "Logging";
  const std::filesystem::path file = folder / "krOpenSSL.log";
  const std::filesystem::path old = folder / "krOpenSSL.log.old";
  const std::filesystem::path target = root / "Corvane" / "target"; ///< a file that no line may reach
  const std::filesystem::path settings = root / "Corvane" / "settings";
};

} // namespace krTest
