// The log in its real folder.
#include "log/krCustomLogger.h"
#include "platform/windows/LogHome.h"
#include "platform/windows/RotationLock.h"

#include <gtest/gtest.h>
#include <windows.h>

#include <array>
#include <functional>
#include <thread>

using namespace krTest;
using namespace krOpenSSL::platform;

namespace {

std::string path;
std::function<void()> meanwhile; // before the check
int checks = 0;

bool check(Entry &checked) {
  ++checks;
  meanwhile();
  checked = inspect(path.c_str());
  return true;
}

// Has the log rotate at one MiB.
struct SmallLimit {
  SmallLimit() {
    RegSetKeyValueA(HKEY_LOCAL_MACHINE, R"(SOFTWARE\WOW6432Node\Corvane\Logging)", "LogSizeInMB", REG_SZ, "1", 2);
  }
  ~SmallLimit() { RegDeleteTreeA(HKEY_LOCAL_MACHINE, R"(SOFTWARE\WOW6432Node\Corvane)"); }
};

// Another process, in the middle of its rotation of this file: it has the turn, and the file is away for a while.
constexpr const char *kRotates = "KR_ROTATES";

void rotateSlowly(HANDLE isAway, const char *file) {
  const RotationLock turn = takeRotationLock(60'000);
  removeEntry(file);
  ReleaseSemaphore(isAway, 1, nullptr);
  Sleep(50);
  startFileForEveryone(file);
}

HANDLE startOther(const char *test, const char *file) {
  std::string command = std::string(GetCommandLineA()) + " --gtest_filter=" + test;
  STARTUPINFOA start{};
  start.cb = sizeof start;
  PROCESS_INFORMATION process{};
  SetEnvironmentVariableA(kRotates, file);
  EXPECT_TRUE(CreateProcessA(nullptr, command.data(), nullptr, nullptr, FALSE, 0, nullptr, nullptr, &start, &process));
  CloseHandle(process.hThread);
  return process.hProcess;
}

} // namespace

// For on-a-real-machine.ps1.
TEST(Log, DISABLED_WritesALine) { krLogLine(1, 2, "line"); }

TEST(Log, LosesNoLineToTheRotationOfAnotherProcess) {
  HANDLE isAway = CreateSemaphoreA(nullptr, 0, 1, "krIsAway");
  std::array<char, MAX_PATH> file;
  if (GetEnvironmentVariableA(kRotates, file.data(), file.size()) != 0) {
    return rotateSlowly(isAway, file.data());
  }
  const LogHome home;
  bool isKept = false;
  for (int attempt = 0; attempt < 3 && !isKept; ++attempt) { // a line does not wait for a process that gets no time
    krLogLine(1, 2, "first");
    HANDLE other = startOther("Log.LosesNoLineToTheRotationOfAnotherProcess", home.file.c_str());
    ASSERT_EQ(WaitForSingleObject(isAway, 60'000), WAIT_OBJECT_0);
    krLogLine(1, 2, "second");
    ASSERT_EQ(WaitForSingleObject(other, 60'000), WAIT_OBJECT_0);
    isKept = contentOf(home.file).find("second") != std::string::npos;
  }
  EXPECT_TRUE(isKept);
}

TEST(Rotation, HoldsTheFolderAndItsTurn) {
  const LogHome home;
  const std::string folder = home.folder.string();
  {
    const Rotation rotation(folder.c_str());
    EXPECT_TRUE(rotation);
    EXPECT_FALSE(MoveFileExA(folder.c_str(), home.other.c_str(), 0));
    std::thread([&] { EXPECT_FALSE(Rotation(folder.c_str()).isAlone()); }).join();
  }
  EXPECT_FALSE(Rotation(home.file.c_str()));                       // nothing stands there
  std::thread([] { (void)takeRotationLock(0).release(); }).join(); // ends while it has the turn
  EXPECT_TRUE(Rotation(folder.c_str()).isAlone());
}

TEST(Log, IsRotatedToAFileForEveryone) {
  const LogHome home;
  const SmallLimit limit;
  put(home.file, std::string(kMiB, 'x'));
  put(home.old, "older");
  krLogLine(1, 2, "first"); // never rotates
  EXPECT_EQ(contentOf(home.old), "older");
  SetLastError(77);
  krLogLine(1, 2, "second");
  EXPECT_EQ(GetLastError(), 77U);
  EXPECT_GT(std::filesystem::file_size(home.old), kMiB);
  EXPECT_NE(contentOf(home.file).find("second"), std::string::npos);
  EXPECT_TRUE(hasAccess(home.file, kForEveryone));
}

TEST(Log, ReplacesLinksAndLeavesTheirTargets) {
  for (const bool hard : {true, false}) {
    const LogHome home;
    put(home.other, "kept");
    hard ? CreateHardLinkA(home.file.c_str(), home.other.c_str(), nullptr)
         : CreateSymbolicLinkA(home.file.c_str(), home.other.c_str(), 0);
    if (!hard && linkStatus(home.file.c_str()) != EntryKind::link) {
      GTEST_SKIP() << "this system makes no symbolic links that are seen as such";
    }
    krLogLine(1, 2, "line");
    EXPECT_EQ(contentOf(home.other), "kept");
    EXPECT_EQ(inspect(home.file.c_str()).kind, EntryKind::file);
    EXPECT_EQ(inspect(home.file.c_str()).links, 1U);
    EXPECT_NE(contentOf(home.file).find("line"), std::string::npos);
    EXPECT_TRUE(hasAccess(home.file, kProtected));
  }
}

TEST(AppendFile, StaysInItsPlaceFromTheOpeningToTheCheck) {
  const LogHome home;
  path = home.file;
  checks = 0;
  meanwhile = [&] {
    EXPECT_FALSE(MoveFileExA(path.c_str(), home.other.c_str(), 0));
    EXPECT_FALSE(DeleteFileA(path.c_str()));
  };
  AppendFile file;
  EXPECT_EQ(file.open(path.c_str(), check), AppendFile::Outcome::opened);
  EXPECT_EQ(checks, 1);
  file.write("a\nb\n", 4);
  EXPECT_EQ(contentOf(path), "a\r\nb\r\n");
}

TEST(AppendFile, IsTheFileThatThePathLeadsToAfterTheCheck) {
  const LogHome home;
  path = home.file;
  checks = 0;
  meanwhile = [&] {
    if (checks == 1) { // another folder takes the place of the one that was opened in
      MoveFileExA(home.folder.string().c_str(), home.other.c_str(), 0);
      CreateDirectoryA(home.folder.string().c_str(), nullptr);
    }
  };
  AppendFile file;
  EXPECT_EQ(file.open(path.c_str(), check), AppendFile::Outcome::opened);
  file.write("line", 4);
  EXPECT_EQ(contentOf(path), "line");
}

TEST(AppendFile, GetsNoLineThroughAFurtherName) {
  const LogHome home;
  path = home.file;
  checks = 0;
  meanwhile = [&] { CreateHardLinkA(home.other.c_str(), path.c_str(), nullptr); };
  AppendFile file;
  EXPECT_EQ(file.open(path.c_str(), check), AppendFile::Outcome::redirected);
  EXPECT_EQ(checks, 1);
}

TEST(MoveOver, MovesAFullFileThatNobodyHolds) {
  const LogHome home;
  put(home.file, "0123456789");
  put(home.old, "older");
  EXPECT_FALSE(moveOver(home.file.c_str(), home.old.c_str(), 11)); // the next file already
  {
    const std::ifstream held(home.file);
    EXPECT_FALSE(moveOver(home.file.c_str(), home.old.c_str(), 10));
  }
  EXPECT_TRUE(moveOver(home.file.c_str(), home.old.c_str(), 10));
  EXPECT_EQ(contentOf(home.old), "0123456789");
  EXPECT_FALSE(moveOver(home.file.c_str(), home.old.c_str(), 0));
}

TEST(Entries, AreSeenAndRemovedAsTheyAre) {
  const LogHome home;
  put(home.file, "");
  std::filesystem::create_hard_link(home.file, home.other);
  const std::string folder = home.folder.string();
  const std::string none = (home.folder / "none" / "log").string();
  EXPECT_EQ(inspect(home.file.c_str()).links, 2U);
  EXPECT_EQ(inspect(folder.c_str()).kind, EntryKind::folder);
  EXPECT_EQ(inspect(folder.c_str()).links, 1U);
  for (const std::string &missing : {none, home.old, std::string("?:\\|")}) {
    EXPECT_EQ(inspect(missing.c_str()).target, EntryKind::missing);
    EXPECT_EQ(status(missing.c_str()), EntryKind::missing);
    EXPECT_FALSE(removeEntry(missing.c_str()));
    EXPECT_FALSE(AppendFile().size(missing.c_str()).has_value());
  }
  EXPECT_FALSE(AppendFile().size(folder.c_str()).has_value());
  EXPECT_FALSE(removeEntry(folder.c_str())); // a real folder
  EXPECT_TRUE(removeEntry(home.file.c_str()));
  EXPECT_EQ(inspect(home.other.c_str()).links, 1U);
  createFolder(home.file.c_str());
  createFile(home.old.c_str());
  EXPECT_EQ(status(home.file.c_str()), EntryKind::folder);
  EXPECT_EQ(status(home.old.c_str()), EntryKind::file);
}
