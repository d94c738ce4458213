// The log with several threads and processes, forks, and somebody who swaps its file for links.
#include "log/TestLog.h"
#include "log/krCustomLogger.h"

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <map>
#include <regex>
#include <thread>

namespace {

using namespace krTest;
namespace fs = std::filesystem;

// Writes numbered lines from a number of threads at once.
void writeLines(int writer, int threads, int lines) {
  std::vector<std::jthread> running;
  running.reserve(static_cast<std::size_t>(threads));
  for (int thread = 0; thread < threads; ++thread) {
    running.emplace_back([=] {
      for (int i = 0; i < lines; ++i) {
        krLogLine(writer, thread, ("number " + std::to_string(i) + std::string(60, '.')).c_str());
      }
    });
  }
}

// How often each line is in the files; a line that is not intact counts under its own text.
std::map<std::string, int> countLines(const TestLog &log) {
  const std::regex format(R"((\d+, c=\d+) .* - '' (number \d+)\.{60} )");
  std::map<std::string, int> counts;
  for (const fs::path &file : {log.old, log.file}) {
    for (const std::string &text : linesOf(file)) {
      std::smatch match;
      ++counts[std::regex_match(text, match, format) ? match.str(1) + " " + match.str(2) : "torn: " + text];
    }
  }
  return counts;
}

void expectEachLineOnce(const TestLog &log, int writers, int threads, int lines) {
  std::map<std::string, int> expected;
  for (int i = 0; i < writers * threads * lines; ++i) {
    ++expected[std::to_string(i % writers) + ", c=" + std::to_string(i / writers % threads) + " number " +
               std::to_string(i / writers / threads)];
  }
  EXPECT_TRUE(countLines(log) == expected)
      << countLines(log).size() << " of " << expected.size() << ", first " << countLines(log).rbegin()->first;
}

} // namespace

TEST(LogContention, ThreadsAndProcessesLoseNoLineAcrossARotation) {
  const TestLog log;
  std::vector<pid_t> children;
  for (int writer = 1; writer < 4; ++writer) {
    children.push_back(::fork());
    if (children.back() == 0) {
      writeLines(writer, 2, 1200);
      ::_exit(0);
    }
  }
  writeLines(0, 2, 1200); // some 1.4 MiB in all
  for (const pid_t child : children) {
    int status = -1;
    EXPECT_EQ(::waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
  }
  EXPECT_TRUE(fs::exists(log.old));
  expectEachLineOnce(log, 4, 2, 1200);
}

TEST(LogContention, AChildOfAnyMomentWritesToo) {
  const TestLog log;
  std::atomic<bool> done{false};
  std::jthread other([&] {
    while (!done) {
      krLogLine(1, 0, "other");
    }
  });
  constexpr int kChildren = 200;
  for (int i = 0; i < kChildren; ++i) {
    ASSERT_EQ(inChild([i] {
                krLogLine(2, i, "child");
                return 0;
              }),
              0);
  }
  done = true;
  other.join();
  int fromChildren = 0;
  for (const fs::path &file : {log.old, log.file}) {
    for (const std::string &text : linesOf(file)) {
      fromChildren += text.starts_with("2, c=") ? 1 : 0;
    }
  }
  // Under a slow sanitizer the other thread may rotate more than once, and the first lines are gone.
  EXPECT_TRUE(fs::exists(log.old) ? fromChildren > 0 : fromChildren == kChildren) << fromChildren;
}

TEST(LogContention, HandlersOfAForkMayLog) {
  const TestLog log;
  const auto handler = [] { krLogLine(3, 0, "handler"); };
  ASSERT_EQ(::pthread_atfork(handler, handler, handler), 0);
  EXPECT_EQ(inChild([] { return 0; }), 0);
  EXPECT_EQ(linesOf(log.file).size(), 3U);
}

TEST_F(AsRoot, SwappedLinksNeverGetALine) {
  const TestLog log;
  const fs::path spare = log.folder / "spare";
  const fs::path elsewhere = log.root / "elsewhere";
  fs::create_directory(elsewhere);
  put(elsewhere / "krOpenSSL.log", "untouched");
  std::atomic<bool> done{false};
  std::atomic<int> swaps{0};
  std::jthread attacker([&] {
    std::error_code ignored;
    const std::function<void()> spares[]{[&] { fs::create_symlink(log.target, spare, ignored); },
                                         [&] { fs::create_hard_link(log.target, spare, ignored); },
                                         [&] { fs::create_symlink(log.root / "nothing", spare, ignored); },
                                         [&] { put(spare, ""); }};
    while (!done) {
      for (const auto &makeSpare : spares) {
        makeSpare();
        fs::rename(spare, log.file, ignored);
        ++swaps;
      }
      fs::remove(log.file, ignored); // a name whose count falls to one while it still shows
      fs::create_hard_link(log.target, log.file, ignored);
      fs::remove(log.file, ignored);
      fs::rename(log.folder, log.root / "aside", ignored);
      fs::create_directory_symlink(elsewhere, log.folder, ignored);
      std::this_thread::yield();
      fs::remove(log.folder, ignored);
      fs::rename(log.root / "aside", log.folder, ignored);
    }
  });
  for (int i = 0; i < 10000; ++i) {
    krLogLine(1, 0, "text");
  }
  done = true;
  attacker.join();
  EXPECT_GT(swaps, 100);
  EXPECT_EQ(contentOf(log.target), "untouched");
  EXPECT_EQ(contentOf(elsewhere / "krOpenSSL.log"), "untouched");
  EXPECT_FALSE(fs::exists(log.root / "nothing"));
}

namespace {

bool logAtExit = false;

// Runs before every static object is made, so that its handler runs when all of them are gone.
[[gnu::constructor(101)]] void registerExitHandler() {
  (void)std::atexit([] {
    if (logAtExit) {
      krLogLine(4, 0, "last");
      krLogLine(4, 0, "last"); // rotates
    }
  });
}

} // namespace

TEST(LogContention, ExitHandlersMayLogWhenStaticObjectsAreGone) {
  const TestLog log;
  const auto exits = [&log] {
    put(log.file, std::string(kMiB, 'x'));
    krLogLine(4, 0, "first");
    krLogLine(4, 0, "second");
    put(log.file, std::string(kMiB, 'x'));
    logAtExit = true;
    std::exit(0);
  };
  EXPECT_EXIT(exits(), testing::ExitedWithCode(0), "");
  EXPECT_EQ(linesOf(log.file).size(), 2U);
}
