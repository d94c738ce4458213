#include "log/TestLog.h"

#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cstdlib>
#include <fstream>
#include <sstream>

namespace krTest {
namespace {

std::filesystem::path newFolder() {
  std::string name = (std::filesystem::temp_directory_path() / "krLogXXXXXX").string();
  if (mkdtemp(name.data()) == nullptr) {
    throw std::filesystem::filesystem_error("mkdtemp", name, std::error_code(errno, std::generic_category()));
  }
  (void)::chmod(name.c_str(), 0755);
  return name;
}

} // namespace

TestLog::TestLog(const std::string &settings) : root(newFolder()) {
  std::filesystem::create_directories(folder);
  put(root / "registry", "REGEDIT4\n[HKEY_LOCAL_MACHINE\\SOFTWARE\\Corvane\\Logging]\n" + settings + "\n");
  put(target, "untouched");
  ::setenv("KR_PROGRAM_DATA", root.c_str(), 1);
  ::setenv("KR_REGISTRY_FILE", (root / "registry").c_str(), 1);
}

TestLog::~TestLog() {
  std::error_code ignored;
  std::filesystem::remove_all(root, ignored);
}

void AsRoot::SetUp() {
  if (::geteuid() != 0) {
    GTEST_SKIP() << "for root only";
  }
}

void put(const std::filesystem::path &file, const std::string &content) { std::ofstream(file) << content; }

std::string contentOf(const std::filesystem::path &file) {
  std::stringstream content;
  content << std::ifstream(file).rdbuf();
  return content.str();
}

std::vector<std::string> linesOf(const std::filesystem::path &file) {
  std::vector<std::string> lines;
  std::ifstream stream(file);
  for (std::string line; std::getline(stream, line);) {
    lines.push_back(line);
  }
  return lines;
}

std::string accessOf(const std::filesystem::path &entry) {
  struct stat found {};
  if (::lstat(entry.c_str(), &found) != 0) {
    return "none";
  }
  std::ostringstream text;
  text << found.st_uid << ':' << found.st_gid << ' ' << std::oct << found.st_mode;
  return text.str();
}

int inChild(const std::function<int()> &work) {
  constexpr unsigned kSeconds = 120;
  const pid_t child = ::fork();
  if (child == 0) {
    ::alarm(kSeconds);
    ::_exit(work());
  }
  int status = 0;
  return ::waitpid(child, &status, 0) == child && WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

} // namespace krTest
