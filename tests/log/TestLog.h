// A log with real files in a folder of the test's own.
#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <functional>
#include <string>
#include <vector>

namespace krTest {

/// Makes the log's folder and points the library at it; before the first line of the process.
class TestLog {
public:
  /// @param settings  lines of the log's key in the registry
  explicit TestLog(const std::string &settings = R"("LogSizeInMB"="1")");
  ~TestLog();
  TestLog(const TestLog &) = delete;
  TestLog &operator=(const TestLog &) = delete;

  const std::filesystem::path root;
  const std::filesystem::path folder = root / "Corvane/Logging";
  const std::filesystem::path file = folder / "krOpenSSL.log";
  const std::filesystem::path old = folder / "krOpenSSL.log.old";
  const std::filesystem::path target = root / "target"; ///< a file that no line may reach
};

/// Tests that only root can carry out: giving files to root, or becoming another user.
class AsRoot : public testing::Test {
  void SetUp() override;
};

constexpr std::uintmax_t kMiB = std::uintmax_t{1} << 20U;

void put(const std::filesystem::path &file, const std::string &content);
std::string contentOf(const std::filesystem::path &file);
std::vector<std::string> linesOf(const std::filesystem::path &file);

/// Owner, group and mode: "0:0 100644".
std::string accessOf(const std::filesystem::path &entry);

/// Runs the work in a child of this process; its exit status, or -1 when it did not exit by itself in time.
int inChild(const std::function<int()> &work);

} // namespace krTest
