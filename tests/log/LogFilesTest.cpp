// The log's files on a real file system: format, rotation, and links in every place.
#include "log/LogFile.h"
#include "log/TestLog.h"
#include "log/krCustomLogger.h"
#include "log/krLogFolderSecurity.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <regex>
#include <tuple>

namespace {

using namespace krTest;
namespace fs = std::filesystem;

void line(const char *message = "text") { krLogLine(1, 0, message); }

// Becomes a user without privileges; the folder is that user's, when it is to write.
void becomeNobody(const TestLog &log, bool ownsFolder) {
  constexpr uid_t kNobody = 65534;
  if (ownsFolder) {
    ASSERT_EQ(::chown(log.folder.c_str(), kNobody, kNobody), 0);
  }
  ASSERT_EQ(::setgid(kNobody), 0);
  ASSERT_EQ(::setuid(kNobody), 0);
}

} // namespace

TEST(LogFile, GetsLinesOfTheFormat) {
  const TestLog log;
  ::umask(077);
  line();
  const std::regex format(R"(1, c=0 \d{4}/\d\d/\d\d \d\d:\d\d:\d\d\.\d{3} p\d{4,} t[0-9a-f]+ )"
                          R"(krCustomLogger\.cpp:363 - '' text \n)");
  EXPECT_TRUE(std::regex_match(contentOf(log.file), format)) << contentOf(log.file);
  EXPECT_EQ(accessOf(log.file).substr(accessOf(log.file).find(' ')), " 100644");
}

TEST(LogFile, IsRotatedAtExactlyTheLimitButNotAheadOfTheFirstLine) {
  const TestLog log;
  ::umask(077);
  put(log.old, "older");
  put(log.file, std::string(kMiB, 'x') + "\n");
  line("first");
  EXPECT_EQ(contentOf(log.old), "older");
  put(log.file, std::string(kMiB - 1, 'x'));
  line("below");
  EXPECT_EQ(contentOf(log.old), "older");
  put(log.file, std::string(kMiB, 'y'));
  line("at");
  EXPECT_EQ(contentOf(log.old), std::string(kMiB, 'y'));
  EXPECT_EQ(linesOf(log.file).size(), 1U);
  EXPECT_NE(contentOf(log.file).find(" at "), std::string::npos);
  EXPECT_EQ(accessOf(log.file).substr(accessOf(log.file).find(' ')), " 100666");
  line("next"); // the next check leaves the fresh file alone
  EXPECT_EQ(linesOf(log.file).size(), 2U);
}

TEST(LogFile, NeedsItsFolder) {
  const TestLog log;
  fs::remove_all(log.root / "Corvane");
  line();
  EXPECT_FALSE(fs::exists(log.root / "Corvane"));
  fs::create_directories(log.folder);
  line();
  EXPECT_EQ(linesOf(log.file).size(), 1U);
  fs::rename(log.folder, log.root / "moved");
  ::setenv("KR_PROGRAM_DATA", "/nowhere", 1); // the path is fixed by now
  line();
  fs::rename(log.root / "moved", log.folder);
  line();
  EXPECT_EQ(linesOf(log.file).size(), 2U);
}

TEST(LogFile, RefusesFoldersThatAreNotThePlaceTheySeem) {
  const TestLog log;
  const fs::path before = fs::current_path();
  fs::current_path(log.root);
  for (const std::string &data : {std::string("."), std::string("relative"), "/" + std::string(1023, 'x')}) {
    ::setenv("KR_PROGRAM_DATA", data.c_str(), 1);
    EXPECT_STREQ(krLogResolvePath(), "");
  }
  fs::current_path(before);
}

TEST_F(AsRoot, LogReplacesLinksAndLeavesTheirTargets) {
  const TestLog log;
  ::umask(077);
  ASSERT_EQ(::chown(log.folder.c_str(), 65534, 65534), 0);
  line("resolved");
  const auto otherFolder = log.root / "other";
  fs::create_directory(otherFolder);
  put(otherFolder / "krOpenSSL.log", "untouched");
  const auto dangling = log.root / "nothing";
  const std::tuple<const char *, std::function<void()>, std::size_t> rows[]{
      {"link", [&] { fs::create_symlink(log.target, log.file); }, 1},
      {"hard link", [&] { fs::create_hard_link(log.target, log.file); }, 1},
      {"dangling link", [&] { fs::create_symlink(dangling, log.file); }, 0},
      {"link to itself", [&] { fs::create_symlink(log.file, log.file); }, 0},
      {"link to a device", [&] { fs::create_symlink("/dev/null", log.file); }, 1},
  };
  for (const auto &[what, place, lines] : rows) {
    SCOPED_TRACE(what);
    fs::remove(log.file);
    place();
    line();
    EXPECT_EQ(linesOf(log.file).size(), lines);
    EXPECT_EQ(accessOf(log.file), "0:0 100644");
    EXPECT_EQ(contentOf(log.target), "untouched");
    EXPECT_EQ(fs::hard_link_count(log.target), 1U);
    EXPECT_FALSE(fs::exists(dangling));
    line();
    EXPECT_EQ(linesOf(log.file).size(), lines + 1);
  }

  fs::remove(log.file);
  fs::create_directory_symlink(otherFolder, log.file); // becomes a folder, to which nothing can be written
  line();
  EXPECT_EQ(accessOf(log.file), "0:0 40755");

  fs::remove_all(log.folder);
  fs::create_directory_symlink(otherFolder, log.folder);
  line();
  EXPECT_EQ(linesOf(log.file).size(), 1U);
  EXPECT_EQ(accessOf(log.folder), "0:0 40755");
  EXPECT_EQ(contentOf(otherFolder / "krOpenSSL.log"), "untouched");

  fs::remove_all(log.folder);
  fs::create_symlink(dangling, log.folder);
  line();
  EXPECT_EQ(accessOf(log.folder), "0:0 100644");
  EXPECT_FALSE(fs::exists(dangling));
}

TEST_F(AsRoot, LogRotatesPastLinks) {
  const TestLog log;
  line("resolved");
  for (const bool hard : {true, false}) {
    SCOPED_TRACE(hard);
    put(log.file, std::string(kMiB, 'z'));
    fs::remove(log.old);
    hard ? fs::create_hard_link(log.target, log.old) : fs::create_symlink(log.target, log.old);
    line();
    EXPECT_EQ(fs::file_size(fs::symlink_status(log.old).type() == fs::file_type::regular ? log.old : log.root / "none"),
              kMiB);
    EXPECT_EQ(linesOf(log.file).size(), 1U);
    EXPECT_EQ(contentOf(log.target), "untouched");
  }
  fs::resize_file(log.target, 2 * kMiB); // the size of a link's target is not the log's
  fs::remove(log.file);
  fs::create_symlink(log.target, log.file);
  line();
  EXPECT_EQ(fs::file_size(log.old), kMiB);
  EXPECT_EQ(linesOf(log.file).size(), 1U);
  EXPECT_EQ(fs::file_size(log.target), 2 * kMiB);
}

TEST(LogFile, NeverWaitsAtWhatIsNoFile) {
  const TestLog log;
  line("resolved");
  for (const auto &make : {+[](const char *path) { return ::mkfifo(path, 0644); },
                           +[](const char *path) { return ::mkdir(path, 0755); }}) {
    for (const fs::path &path : {log.file, log.old}) {
      fs::remove(log.file);
      if (path == log.old) {
        put(log.file, std::string(kMiB, 'x'));
      }
      ASSERT_EQ(make(path.c_str()), 0);
      const std::string before = accessOf(path);
      line();
      EXPECT_EQ(path == log.file ? accessOf(path) : before, before);
      fs::remove(path);
    }
  }
  fs::remove(log.file);
  line();
  EXPECT_EQ(linesOf(log.file).size(), 1U);
}

TEST(LogFile, StartsAFreshFileOverWhateverStandsThere) {
  const TestLog log;
  const auto modes = [&] { return accessOf(log.file).substr(accessOf(log.file).find(' ')); };
  put(log.file, "text");
  ASSERT_EQ(::chmod(log.file.c_str(), 0700), 0); // not what an append leaves
  EXPECT_EQ(krLogCreateFresh(log.file.c_str()), 1);
  EXPECT_EQ(contentOf(log.file) + modes(), " 100666");
  fs::remove(log.file);
  fs::create_symlink(log.target, log.file);
  EXPECT_EQ(krLogCreateFresh(log.file.c_str()), 1);
  EXPECT_EQ(contentOf(log.file) + modes() + contentOf(log.target), " 100666untouched");
  fs::remove(log.file);
  fs::create_directory(log.file);
  EXPECT_EQ(krLogCreateFresh(log.file.c_str()), 0);
  EXPECT_EQ(krLogCreateFresh((log.root / "none/krOpenSSL.log").c_str()), 0);
  // A line of another process that came between the move and this stays.
  fs::remove(log.file);
  line();
  EXPECT_EQ(krLogCreateFresh(log.file.c_str()), 1);
  EXPECT_EQ(std::to_string(linesOf(log.file).size()) + modes(), "1 100666");
}

TEST(LogFile, LosesWholeLinesOnAFullDisk) {
  const TestLog log;
  line("fits");
  const std::string before = contentOf(log.file);
  ASSERT_NE(::signal(SIGXFSZ, SIG_IGN), SIG_ERR);
  const rlimit full{before.size() + 10, RLIM_INFINITY};
  ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &full), 0);
  line("does not fit");
  EXPECT_EQ(contentOf(log.file), before);
  const rlimit empty{RLIM_INFINITY, RLIM_INFINITY};
  ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &empty), 0);
  line("fits");
  EXPECT_EQ(linesOf(log.file).size(), 2U);
}

TEST_F(AsRoot, LogServesUsersWithoutPrivileges) {
  const TestLog log;
  const auto asNobody = [&](bool ownsFolder, const std::function<void()> &work) {
    EXPECT_EQ(inChild([&] {
                becomeNobody(log, ownsFolder);
                work();
                return testing::Test::HasFailure() ? 1 : 0;
              }),
              0);
  };
  // It may write to a file for everyone, which it cannot move away.
  ASSERT_EQ(krLogCreateFresh(log.file.c_str()), 1);
  asNobody(false, [&] {
    line();
    fs::resize_file(log.file, kMiB);
    line();
    EXPECT_EQ(linesOf(log.file).size(), 2U);
    EXPECT_FALSE(fs::exists(log.old));
  });
  // In a folder of root it cannot make the file; in its own it cannot give it to root: the check fails.
  fs::remove(log.file);
  asNobody(false, [&] {
    line();
    EXPECT_FALSE(fs::exists(log.file));
  });
  asNobody(true, [&] {
    fs::create_symlink(log.target, log.file);
    line();
    EXPECT_EQ(contentOf(log.file), "");
    line();
    EXPECT_EQ(linesOf(log.file).size(), 1U);
  });
  EXPECT_EQ(contentOf(log.target), "untouched");
}
