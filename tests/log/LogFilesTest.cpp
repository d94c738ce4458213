// The log's files on a real file system: format, rotation, and links in every place.
#include "log/LogFile.h"
#include "log/krCustomLogger.h"
#include "log/krLogFolderSecurity.h"
#include "support/Home.h"
#include "support/posix/Users.h"

#include <signal.h>
#include <sys/resource.h>

#include <algorithm>

namespace {

using namespace krTest;
namespace fs = std::filesystem;

void line(const char *message = "text") { krLogLine(1, 0, message); }

} // namespace

TEST(LogFile, GetsLinesOfTheFormat) {
  const Home home;
  ::umask(077);
  line();
  std::string text = contentOf(home.file);
  std::ranges::replace_if(
      text, [](unsigned char character) { return std::isdigit(character) != 0; }, '0');
  EXPECT_TRUE(text.starts_with("0, c=0 0000/00/00 00:00:00.000 p0000")) << text;
  EXPECT_TRUE(text.ends_with(" krCustomLogger.cpp:000 - '' text \n")) << text;
  EXPECT_EQ(modeOf(home.file), "100644");
}

TEST(LogFile, IsRotatedAtExactlyTheLimitButNotAheadOfTheFirstLine) {
  const Home home;
  ::umask(077);
  put(home.old, "older");
  put(home.file, std::string(kMiB, 'x') + "\n");
  line("first");
  put(home.file, std::string(kMiB - 1, 'x'));
  line("below");
  EXPECT_EQ(contentOf(home.old), "older");
  put(home.file, std::string(kMiB, 'y'));
  line("at");
  EXPECT_EQ(contentOf(home.old), std::string(kMiB, 'y'));
  EXPECT_NE(contentOf(home.file).find(" at "), std::string::npos);
  EXPECT_EQ(modeOf(home.file), "100666");
  line("next"); // the next check leaves the fresh file alone
  EXPECT_EQ(linesOf(home.file).size(), 2U);
}

TEST(LogFile, NeedsItsFolder) {
  const Home home;
  fs::remove_all(home.root / "Corvane");
  line();
  EXPECT_FALSE(fs::exists(home.root / "Corvane"));
  fs::create_directories(home.folder);
  ::setenv("KR_PROGRAM_DATA", "/nowhere", 1); // the path is fixed by now
  line();
  EXPECT_EQ(linesOf(home.file).size(), 1U);
}

TEST(LogFile, RefusesFoldersThatAreNotThePlaceTheySeem) {
  const Home home;
  fs::current_path(home.root);
  for (const std::string &data : {std::string("."), std::string("relative"), "/" + std::string(1023, 'x')}) {
    ::setenv("KR_PROGRAM_DATA", data.c_str(), 1);
    EXPECT_STREQ(krLogResolvePath(), "");
  }
  fs::current_path("/");
}

TEST_F(AsRoot, LogReplacesLinksAndLeavesTheirTargets) {
  const Home home;
  ::umask(077);
  ASSERT_EQ(::chown(home.folder.c_str(), kNobody, kNobody), 0);
  line("resolved");
  const auto otherFolder = home.root / "other";
  fs::create_directory(otherFolder);
  put(otherFolder / "krOpenSSL.log", "untouched");
  const auto dangling = home.root / "nothing";
  struct Row {
    const char *what;
    std::function<void()> place;
    std::size_t lines;
  } const rows[]{
      {"link", [&] { fs::create_symlink(home.target, home.file); }, 1},
      {"hard link", [&] { fs::create_hard_link(home.target, home.file); }, 1},
      {"dangling link", [&] { fs::create_symlink(dangling, home.file); }, 0},
      {"link to itself", [&] { fs::create_symlink(home.file, home.file); }, 0},
      {"link to a device", [&] { fs::create_symlink("/dev/null", home.file); }, 1},
  };
  for (const Row &row : rows) {
    SCOPED_TRACE(row.what);
    fs::remove(home.file);
    row.place();
    line();
    EXPECT_EQ(accessOf(home.file), "0:0 100644");
    EXPECT_EQ(contentOf(home.target), "untouched");
    EXPECT_EQ(fs::hard_link_count(home.target), 1U);
    line();
    EXPECT_EQ(linesOf(home.file).size(), row.lines + 1);
  }

  fs::remove(home.file);
  fs::create_directory_symlink(otherFolder, home.file); // becomes a folder, to which nothing can be written
  line();
  EXPECT_EQ(accessOf(home.file), "0:0 40755");

  fs::remove_all(home.folder);
  fs::create_directory_symlink(otherFolder, home.folder);
  line();
  EXPECT_EQ(linesOf(home.file).size(), 1U);
  EXPECT_EQ(accessOf(home.folder), "0:0 40755");
  EXPECT_EQ(contentOf(otherFolder / "krOpenSSL.log"), "untouched");

  fs::remove_all(home.folder);
  fs::create_symlink(dangling, home.folder);
  line();
  EXPECT_EQ(accessOf(home.folder), "0:0 100644");
  EXPECT_FALSE(fs::exists(dangling));
}

TEST_F(AsRoot, LogRotatesPastLinks) {
  const Home home;
  line("resolved");
  for (const bool hard : {true, false}) {
    SCOPED_TRACE(hard);
    put(home.file, std::string(kMiB, 'z'));
    fs::remove(home.old);
    hard ? fs::create_hard_link(home.target, home.old) : fs::create_symlink(home.target, home.old);
    line();
    EXPECT_EQ(fs::symlink_status(home.old).type(), fs::file_type::regular);
    EXPECT_EQ(fs::file_size(home.old), kMiB);
    EXPECT_EQ(linesOf(home.file).size(), 1U);
    EXPECT_EQ(contentOf(home.target), "untouched");
  }
  fs::resize_file(home.target, 2 * kMiB); // the size of a link's target is not the log's
  fs::remove(home.file);
  fs::create_symlink(home.target, home.file);
  line();
  EXPECT_EQ(fs::file_size(home.old), kMiB);
  EXPECT_EQ(linesOf(home.file).size(), 1U);
  EXPECT_EQ(fs::file_size(home.target), 2 * kMiB);
}

TEST(LogFile, NeverWaitsAtWhatIsNoFile) {
  const Home home;
  line("resolved");
  for (const auto &make : {+[](const char *path) { return ::mkfifo(path, 0644); },
                           +[](const char *path) { return ::mkdir(path, 0755); }}) {
    for (const fs::path &path : {home.file, home.old}) {
      put(home.file, std::string(kMiB, 'x')); // to be moved over what is no file
      fs::remove(path);
      ASSERT_EQ(make(path.c_str()), 0);
      const std::string before = accessOf(path);
      line();
      EXPECT_EQ(path == home.file ? accessOf(path) : before, before);
      fs::remove(home.file);
      fs::remove(home.old);
    }
  }
  line();
  EXPECT_EQ(linesOf(home.file).size(), 1U);
}

TEST(LogFile, StartsAFreshFileOverWhateverStandsThere) {
  const Home home;
  put(home.file, "text");
  ASSERT_EQ(::chmod(home.file.c_str(), 0700), 0); // not what an append leaves
  EXPECT_EQ(krLogCreateFresh(home.file.c_str()), 1);
  EXPECT_EQ(contentOf(home.file) + modeOf(home.file), "100666");
  fs::remove(home.file);
  fs::create_symlink(home.target, home.file);
  EXPECT_EQ(krLogCreateFresh(home.file.c_str()), 1);
  EXPECT_EQ(contentOf(home.file) + modeOf(home.file) + contentOf(home.target), "100666untouched");
  fs::remove(home.file);
  fs::create_directory(home.file);
  EXPECT_EQ(krLogCreateFresh(home.file.c_str()), 0);
  EXPECT_EQ(krLogCreateFresh((home.root / "none/krOpenSSL.log").c_str()), 0);
  // A line of another process that came between the move and this stays.
  fs::remove(home.file);
  line();
  EXPECT_EQ(krLogCreateFresh(home.file.c_str()), 1);
  EXPECT_EQ(modeOf(home.file), "100666");
  (void)!::chown(home.file.c_str(), kNobody, kNobody); // as root: so does one that another user has rotated to
  EXPECT_EQ(krLogCreateFresh(home.file.c_str()), 1);
  EXPECT_EQ(linesOf(home.file).size(), 1U);
}

TEST(LogFile, LosesWholeLinesOnAFullDisk) {
  const Home home;
  line("fits");
  const std::string before = contentOf(home.file);
  ASSERT_NE(::signal(SIGXFSZ, SIG_IGN), SIG_ERR);
  for (const rlim_t room : {rlim_t{before.size() + 10}, rlim_t{RLIM_INFINITY}}) {
    const rlimit limit{room, RLIM_INFINITY};
    ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &limit), 0);
    line("may not fit");
    EXPECT_EQ(contentOf(home.file) == before, room != RLIM_INFINITY);
  }
}

TEST_F(AsRoot, LogServesUsersWithoutPrivileges) {
  const Home home;
  const auto asNobody = [&](const std::function<void()> &work) {
    EXPECT_EQ(inChild([&] {
                EXPECT_EQ(::setgid(kNobody) + ::setuid(kNobody), 0);
                work();
                return testing::Test::HasFailure() ? 1 : 0;
              }),
              0);
  };
  // It may write to a file for everyone, which it cannot move away.
  ASSERT_EQ(krLogCreateFresh(home.file.c_str()), 1);
  asNobody([&] {
    line();
    fs::resize_file(home.file, kMiB);
    line();
    EXPECT_EQ(linesOf(home.file).size(), 2U);
    EXPECT_FALSE(fs::exists(home.old));
  });
  // In a folder of root it cannot make the file; in its own it cannot give it to root: the check fails.
  fs::remove(home.file);
  asNobody([] { line(); });
  EXPECT_FALSE(fs::exists(home.file));
  ASSERT_EQ(::chown(home.folder.c_str(), kNobody, kNobody), 0);
  asNobody([&] {
    fs::create_symlink(home.target, home.file);
    line();
    EXPECT_EQ(contentOf(home.file), "");
    line();
    EXPECT_EQ(linesOf(home.file).size(), 1U);
  });
  EXPECT_EQ(contentOf(home.target), "untouched");
}
