// Other users and other processes.
#pragma once

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <functional>
#include <sstream>

namespace krTest {

inline constexpr uid_t kNobody = 65534;

/// Tests that only root can carry out: giving files to root, or becoming another user.
class AsRoot : public testing::Test {
  void SetUp() override {
    if (::geteuid() != 0) {
      GTEST_SKIP() << "for root only";
    }
  }
};

/// Owner, group and mode: "0:0 100644".
inline std::string accessOf(const std::filesystem::path &entry) {
  struct stat found {};
  std::ostringstream text;
  if (::lstat(entry.c_str(), &found) == 0) {
    text << found.st_uid << ':' << found.st_gid << ' ' << std::oct << found.st_mode;
  }
  return text.str();
}
inline std::string modeOf(const std::filesystem::path &entry) {
  const std::string access = accessOf(entry);
  return access.substr(access.find(' ') + 1);
}

/// Runs the work in a child of this process; its exit status, or -1 when it did not exit by itself in time.
inline int inChild(const std::function<int()> &work, pid_t (*forking)() = ::fork) {
  constexpr unsigned kSeconds = 120;
  const pid_t child = forking();
  if (child == 0) {
    ::alarm(kSeconds);
    ::_exit(work());
  }
  int status = 0;
  return ::waitpid(child, &status, 0) == child && WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

} // namespace krTest
