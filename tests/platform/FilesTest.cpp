// What happens to a file between a check and what follows it.
#include "platform/Platform.h"
#include "support/Home.h"
#include "support/posix/Users.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/inotify.h>

#include <array>
#include <stdexcept>

namespace {

using namespace krTest;
using namespace krOpenSSL::platform;
namespace fs = std::filesystem;
using Outcome = AppendFile::Outcome;

std::string path;
std::function<void(int)> meanwhile; // after the check, with the number of checks so far
int checks = 0;

// As the library's own check, puts a file where a link stands: a file that is there at once needs no check.
bool check(Entry &checked) {
  if (checks == 0 && fs::is_symlink(path)) {
    fs::remove(path);
    put(path, "");
  }
  checked = inspect(path.c_str());
  meanwhile(++checks);
  return true;
}

} // namespace

TEST(AppendFile, IsTheFileThatWasChecked) {
  const Home home;
  path = home.file;
  const fs::path spare = home.folder / "spare";
  const auto once = [](const std::function<void()> &swap) {
    return [swap](int number) { number == 1 ? swap() : void(); };
  };
  const auto remove = [&] { fs::remove_all(home.file); };
  const auto exchange = [&] {
    put(spare, "");
    fs::rename(spare, home.file);
  };
  const struct {
    const char *what;
    std::function<void(int)> swap;
    Outcome outcome;
    int checks;
  } rows[]{
      {"nothing", [](int) {}, Outcome::opened, 1},
      {"another file, once", once(exchange), Outcome::opened, 2},
      {"another file, always", [&](int) { exchange(); }, Outcome::unsafe, 16},
      {"no file, once", once(remove), Outcome::opened, 2},
      {"a link", [&](int) { remove(), fs::create_symlink(home.target, home.file); }, Outcome::redirected, 1},
      {"a further name", [&](int) { fs::create_hard_link(home.file, spare); }, Outcome::redirected, 1},
      {"a folder", [&](int) { remove(), fs::create_directory(home.file); }, Outcome::failed, 1},
      {"a FIFO", [&](int) { remove(), ::mkfifo(path.c_str(), 0600); }, Outcome::failed, 1},
      {"a link for the folder",
       [&](int) {
         fs::rename(home.folder, home.root / "aside");
         fs::create_directory_symlink(home.root / "aside", home.folder);
       },
       Outcome::failed, 1},
  };
  for (const auto &row : rows) {
    SCOPED_TRACE(row.what);
    fs::remove(spare);
    remove();
    fs::create_symlink(home.root / "none", path);
    meanwhile = row.swap;
    checks = 0;
    AppendFile file;
    EXPECT_EQ(file.open(path.c_str(), check), row.outcome);
    EXPECT_EQ(checks, row.checks);
    EXPECT_EQ(contentOf(home.target), "untouched");
  }
}

TEST(AppendFile, IsNotMadeBeforeTheCheckNorOverAnotherOne) {
  const Home home;
  path = home.file;
  AppendFile file;
  EXPECT_EQ(file.open(path.c_str(), [](Entry &) { return false; }), Outcome::unsafe);
  EXPECT_THROW(file.open(path.c_str(), [](Entry &) -> bool { throw std::runtime_error(""); }), std::runtime_error);
  EXPECT_FALSE(fs::exists(home.file));
  checks = 0;
  meanwhile = [](int) { put(path, "another process was here\n"); };
  EXPECT_EQ(file.open(path.c_str(), check), Outcome::opened);
  EXPECT_EQ(checks, 2);
  file.write("line\n", 5);
  EXPECT_EQ(linesOf(home.file).size(), 2U);
}

TEST(Inspect, SeesTheEntryAndTheEndOfItsLinks) {
  const Home home;
  fs::create_symlink(home.target, home.file);
  fs::create_symlink(home.old, home.old);
  fs::create_hard_link(home.target, home.root / "name");
  const struct {
    fs::path entry;
    EntryKind target, kind;
    std::uint64_t links;
  } rows[]{
      {home.target, EntryKind::file, EntryKind::file, 2},
      {home.root, EntryKind::folder, EntryKind::folder, 1},
      {home.file, EntryKind::file, EntryKind::link, 1},
      {home.old, EntryKind::missing, EntryKind::link, 1},
      {"/dev/null", EntryKind::other, EntryKind::other, 1},
      {home.target / "none", EntryKind::missing, EntryKind::missing, 0},
      {home.root / std::string(300, 'x'), EntryKind::missing, EntryKind::missing, 0},
  };
  for (const auto &row : rows) {
    SCOPED_TRACE(row.entry);
    const Entry found = inspect(row.entry.c_str());
    EXPECT_EQ(found.target, row.target);
    EXPECT_EQ(found.kind, row.kind);
    EXPECT_EQ(found.links, row.links);
    EXPECT_EQ(status(row.entry.c_str()), row.target);
    EXPECT_EQ(linkStatus(row.entry.c_str()), row.kind);
    EXPECT_EQ(AppendFile().size(row.entry.c_str()).has_value(), row.kind == EntryKind::file);
  }
}

TEST(MoveOver, MovesAFullFileOfWhichNobodyElseDoes) {
  const Home home;
  const auto moves = [&](std::uintmax_t size, bool locked) {
    put(home.file, std::string(size, 'x'));
    const int other = ::open(home.file.c_str(), O_RDONLY | O_CLOEXEC);
    EXPECT_TRUE(!locked || ::flock(other, LOCK_SH) == 0);
    const bool moved = moveOver(home.file.c_str(), home.old.c_str(), 10);
    // Where it could be exchanged for, an empty file for everyone stands there already.
    EXPECT_EQ(modeOf(home.file), !moved ? "100644" : locked ? "" : "100666");
    EXPECT_EQ(contentOf(home.file).size(), moved ? 0 : size);
    EXPECT_FALSE(fs::exists(home.folder / "krOpenSSL.log.new"));
    ::close(other);
    fs::remove(home.file);
    return moved;
  };
  put(home.folder / "krOpenSSL.log.new", "left behind");
  EXPECT_TRUE(moves(10, false));
  EXPECT_FALSE(moves(9, false)); // the next file already
  EXPECT_FALSE(moves(19, true));
  EXPECT_TRUE(moves(20, true)); // whoever holds the lock does not move it
  EXPECT_EQ(fs::file_size(home.old), 20U);
  EXPECT_FALSE(moveOver(home.file.c_str(), home.old.c_str(), 0));
  fs::create_symlink(home.target, home.file);
  EXPECT_FALSE(moveOver(home.file.c_str(), home.old.c_str(), 0));
}

TEST_F(AsRoot, MoveOverDoesNotLockWhatItMayNotMove) {
  const Home home;
  put(home.file, "full");
  const int opened = ::inotify_init1(IN_CLOEXEC | IN_NONBLOCK);
  ASSERT_GE(::inotify_add_watch(opened, home.file.c_str(), IN_OPEN), 0);
  const auto moves = [&](mode_t folder, uid_t owner) {
    EXPECT_EQ(::chmod(home.folder.c_str(), folder) + ::chown(home.file.c_str(), owner, owner), 0);
    const auto move = [&] {
      return ::setuid(kNobody) == 0 && moveOver(home.file.c_str(), home.old.c_str(), 0) ? 1 : 0;
    };
    return inChild(move) == 1;
  };
  EXPECT_FALSE(moves(0755, kNobody));
  EXPECT_FALSE(moves(01777, 0));
  put(home.old, "root's");
  EXPECT_FALSE(moves(01777, kNobody));
  std::array<char, 4096> events;
  EXPECT_EQ(::read(opened, events.data(), events.size()), -1);
  fs::remove(home.old);
  EXPECT_TRUE(moves(01777, kNobody));
  ::close(opened);
}

TEST_F(AsRoot, ProtectionChangesFoldersAndFilesOfOneNameOnly) {
  const Home home;
  ASSERT_EQ(::chown(home.target.c_str(), kNobody, kNobody), 0);
  const std::string before = accessOf(home.target);
  fs::create_symlink(home.target, home.file);
  fs::create_hard_link(home.target, home.old);
  for (const auto &entry : {home.file, home.old}) {
    EXPECT_FALSE(giveToAdministrators(entry.c_str()));
    EXPECT_FALSE(protect(entry.c_str(), {}));
    EXPECT_EQ(accessOf(home.target), before);
  }
  fs::remove(home.old);
  for (const auto &[entry, access] : {std::pair(home.target, "0:0 100644"), std::pair(home.folder, "0:0 40755")}) {
    ASSERT_EQ(::chmod(entry.c_str(), 0777), 0);
    EXPECT_TRUE(giveToAdministrators(entry.c_str()));
    EXPECT_TRUE(protect(entry.c_str(), {}));
    EXPECT_EQ(accessOf(entry), access);
  }
}
