// What happens to a file between a check and what follows it.
#include "log/TestLog.h"
#include "platform/Platform.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <stdexcept>
#include <tuple>

namespace {

using namespace krTest;
using namespace krOpenSSL::platform;
using Outcome = AppendFile::Outcome;

std::string path;
std::function<void(int)> meanwhile; // after the check, with the number of checks so far
int checks = 0;

// As the library's own check, puts a file where a link stands: a file that is there at once needs no check.
bool check(Entry &checked) {
  if (checks == 0 && std::filesystem::is_symlink(path)) {
    std::filesystem::remove(path);
    put(path, "");
  }
  checked = inspect(path.c_str());
  meanwhile(++checks);
  return true;
}

bool refuse(Entry & /*checked*/) { return false; }
bool raise(Entry & /*checked*/) { throw std::runtime_error("raised"); }

} // namespace

TEST(AppendFile, IsTheFileThatWasChecked) {
  const TestLog log;
  path = log.file;
  const std::filesystem::path spare = log.folder / "spare";
  const auto once = [](const std::function<void()> &swap) {
    return [swap](int number) { number == 1 ? swap() : void(); };
  };
  const auto remove = [&] { std::filesystem::remove_all(log.file); };
  const auto exchange = [&] {
    put(spare, "");
    std::filesystem::rename(spare, log.file);
  };
  const std::tuple<const char *, std::function<void(int)>, Outcome, int> rows[]{
      {"nothing", [](int) {}, Outcome::opened, 1},
      {"another file, once", once(exchange), Outcome::opened, 2},
      {"another file, always", [&](int) { exchange(); }, Outcome::unsafe, 16},
      {"no file, once", once(remove), Outcome::opened, 2},
      {"a link", [&](int) { remove(), std::filesystem::create_symlink(log.target, log.file); }, Outcome::redirected, 1},
      {"a dangling link", [&](int) { remove(), std::filesystem::create_symlink(log.root / "none", log.file); },
       Outcome::redirected, 1},
      {"a further name", [&](int) { std::filesystem::create_hard_link(log.file, spare); }, Outcome::redirected, 1},
      {"a folder", [&](int) { remove(), std::filesystem::create_directory(log.file); }, Outcome::failed, 1},
      {"a FIFO", [&](int) { remove(), ::mkfifo(path.c_str(), 0600); }, Outcome::failed, 1},
      {"a link for the folder",
       [&](int) {
         std::filesystem::rename(log.folder, log.root / "aside");
         std::filesystem::create_directory_symlink(log.root / "aside", log.folder);
       },
       Outcome::failed, 1},
  };
  for (const auto &[what, swap, outcome, expectedChecks] : rows) {
    SCOPED_TRACE(what);
    std::filesystem::remove(spare);
    remove();
    std::filesystem::create_symlink(log.root / "none", path);
    meanwhile = swap;
    checks = 0;
    AppendFile file;
    EXPECT_EQ(file.open(path.c_str(), check), outcome);
    EXPECT_EQ(checks, expectedChecks);
    EXPECT_EQ(contentOf(log.target), "untouched");
  }
}

TEST(AppendFile, IsNotMadeBeforeTheCheckNorOverAnotherOne) {
  const TestLog log;
  path = log.file;
  AppendFile file;
  EXPECT_EQ(file.open(path.c_str(), refuse), Outcome::unsafe);
  EXPECT_THROW(file.open(path.c_str(), raise), std::runtime_error);
  EXPECT_FALSE(std::filesystem::exists(log.file));
  checks = 0;
  meanwhile = [](int) { put(path, "another process was here\n"); };
  EXPECT_EQ(file.open(path.c_str(), check), Outcome::opened);
  EXPECT_EQ(checks, 2);
  file.write("line\n", 5);
  EXPECT_EQ(linesOf(log.file).size(), 2U);
}

TEST(Inspect, SeesTheEntryAndTheEndOfItsLinks) {
  const TestLog log;
  std::filesystem::create_symlink(log.target, log.file);
  std::filesystem::create_symlink(log.old, log.old);
  std::filesystem::create_hard_link(log.target, log.root / "name");
  const std::tuple<std::filesystem::path, EntryKind, EntryKind, std::uint64_t> rows[]{
      {log.target, EntryKind::file, EntryKind::file, 2},
      {log.root, EntryKind::folder, EntryKind::folder, 1},
      {log.file, EntryKind::file, EntryKind::link, 1},
      {log.old, EntryKind::missing, EntryKind::link, 1},
      {"/dev/null", EntryKind::other, EntryKind::other, 1},
      {log.root / "none", EntryKind::missing, EntryKind::missing, 0},
      {log.target / "none", EntryKind::missing, EntryKind::missing, 0},
      {log.root / std::string(300, 'x'), EntryKind::missing, EntryKind::missing, 0},
  };
  for (const auto &[entry, target, kind, links] : rows) {
    const Entry found = inspect(entry.c_str());
    EXPECT_TRUE(found.target == target && found.kind == kind && found.links == links) << entry;
    EXPECT_EQ(status(entry.c_str()), target) << entry;
    EXPECT_EQ(linkStatus(entry.c_str()), kind) << entry;
    EXPECT_EQ(fileSize(entry.c_str()).has_value(), kind == EntryKind::file) << entry;
  }
}

TEST(MoveOver, MovesAFullFileOfWhichNobodyElseDoes) {
  const TestLog log;
  const auto moves = [&](std::uintmax_t size, bool locked) {
    put(log.file, std::string(size, 'x'));
    const int other = ::open(log.file.c_str(), O_RDONLY | O_CLOEXEC);
    EXPECT_TRUE(!locked || ::flock(other, LOCK_SH) == 0);
    const bool moved = moveOver(log.file.c_str(), log.old.c_str(), 10);
    EXPECT_EQ(std::filesystem::exists(log.file), !moved);
    ::close(other);
    return moved;
  };
  EXPECT_TRUE(moves(10, false));
  EXPECT_FALSE(moves(9, false)); // the next file already
  EXPECT_FALSE(moves(19, true));
  EXPECT_TRUE(moves(20, true)); // whoever holds the lock does not move it
  EXPECT_EQ(std::filesystem::file_size(log.old), 20U);
  std::filesystem::remove(log.file);
  EXPECT_FALSE(moveOver(log.file.c_str(), log.old.c_str(), 0));
  std::filesystem::create_symlink(log.target, log.file);
  EXPECT_FALSE(moveOver(log.file.c_str(), log.old.c_str(), 0));
}

TEST_F(AsRoot, ProtectionChangesFoldersAndFilesOfOneNameOnly) {
  const TestLog log;
  ASSERT_EQ(::chown(log.target.c_str(), 65534, 65534), 0);
  ASSERT_EQ(::chmod(log.target.c_str(), 0600), 0);
  const std::string before = accessOf(log.target);
  std::filesystem::create_symlink(log.target, log.file);
  std::filesystem::create_hard_link(log.target, log.old);
  for (const auto &entry : {log.file, log.old}) {
    EXPECT_FALSE(giveToAdministrators(entry.c_str()));
    EXPECT_FALSE(protect(entry.c_str(), {}));
    EXPECT_EQ(accessOf(log.target), before);
  }
  std::filesystem::remove(log.old);
  for (const auto &[entry, access] : {std::pair(log.target, "0:0 100644"), std::pair(log.folder, "0:0 40755")}) {
    ASSERT_EQ(::chmod(entry.c_str(), 0777), 0);
    EXPECT_TRUE(giveToAdministrators(entry.c_str()) && protect(entry.c_str(), {}));
    EXPECT_EQ(accessOf(entry), access);
  }
}
