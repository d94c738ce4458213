// The log with several threads and processes, forks, and somebody who swaps its file for links.
#include "accessors/CallOut.h"
#include "accessors/krTraceLog.h"
#include "log/krCustomLogger.h"
#include "log/krLogFolderSecurity.h"
#include "platform/Platform.h"
#include "support/Home.h"
#include "support/posix/Users.h"

#include <poll.h>
#include <sys/time.h>

#include <algorithm>
#include <atomic>
#include <csignal>
#include <map>
#include <thread>

namespace {

using namespace krTest;
namespace fs = std::filesystem;

constexpr int kWriters = 4;
constexpr int kWritersThreads = 2;
constexpr int kLines = 1200;

// A line of each number from each thread.
void writeLines(int writer) {
  std::vector<std::jthread> running;
  running.reserve(kWritersThreads);
  for (int thread = 0; thread < kWritersThreads; ++thread) {
    running.emplace_back([=] {
      for (int i = 0; i < kLines; ++i) {
        krLogLine(writer, thread, (std::to_string(i) + std::string(70, '.')).c_str());
      }
    });
  }
}

// The lines by their beginning, "level, c=component ", and the message; what is not intact comes as it is.
std::map<std::string, int> countLines(const Home &home) {
  std::map<std::string, int> counts;
  for (const fs::path &file : {home.old, home.file}) {
    for (const std::string &line : linesOf(file)) {
      const std::size_t message = line.find(" - '' ");
      ++counts[message == std::string::npos ? line : line.substr(0, 7) + line.substr(message + 6)];
    }
  }
  return counts;
}

} // namespace

TEST(LogContention, ThreadsAndProcessesLoseNoLineAcrossARotation) {
  const Home home;
  ASSERT_EQ(krLogCreateFresh(home.file.c_str()), 1);
  std::vector<pid_t> children;
  for (int writer = 1; writer < kWriters; ++writer) {
    children.push_back(::fork());
    if (children.back() == 0) {
      if (writer == 3) {
        (void)!::setuid(kNobody); // of root's, one that may write and not rotate
      }
      writeLines(writer);
      ::_exit(0);
    }
  }
  writeLines(0); // some 1.4 MiB in all
  for (const pid_t child : children) {
    EXPECT_EQ(::waitpid(child, nullptr, 0), child);
  }
  EXPECT_TRUE(fs::exists(home.old));
  EXPECT_EQ(modeOf(home.file), "100666");
  const std::map<std::string, int> lines = countLines(home);
  EXPECT_EQ(lines.size(), kWriters * kWritersThreads * kLines);
  for (const auto &[line, count] : lines) {
    EXPECT_EQ(count, 1) << line;
    EXPECT_TRUE(line.ends_with(std::string(70, '.') + " ")) << line;
  }
}

// The thread sanitizer knows fork alone, and wants no such signal handlers.
#ifdef __SANITIZE_THREAD__
constexpr bool kAnyFork = false;
#else
constexpr bool kAnyFork = true;
#endif

TEST(LogContention, AChildOfAnyMomentWritesToo) {
  const Home home;
  std::atomic<bool> done{false};
  std::jthread other([&] {
    while (!done) {
      krLogLine(1, 0, "other");
      std::this_thread::yield(); // the lock is not fair
    }
  });
  const auto child = [] {
    krLogLine(2, 0, "child");
    return 0;
  };
  krLogLine(1, 0, "other"); // with numbers of this thread's that are not its children's
  for (int i = 0; i < 200; ++i) {
    ASSERT_EQ(inChild(child, kAnyFork && i % 2 == 0 ? ::_Fork : ::fork), 0); // _Fork waits for no line
  }
  done = true;
  other.join();
  std::string self = std::to_string(::getpid());
  self = " p" + std::string(4 - std::min<std::size_t>(4, self.size()), '0') + self + " ";
  for (const fs::path &file : {home.old, home.file}) { // of which a slow sanitizer may have lost the first
    for (const std::string &line : linesOf(file)) {
      EXPECT_EQ(line.starts_with("2"), line.find(self) == std::string::npos) << line;
    }
  }
  EXPECT_GT(countLines(home)["2, c=0 child "], 0);
}

namespace {

std::atomic<int> forked{0};
std::atomic<int> hung{0};

void forkAndLog(int /*signal*/) {
  const auto child = [] {
    krLogLine(2, 0, "text");
    return 0;
  };
  hung += inChild(child, ++forked % 2 == 0 ? ::_Fork : ::fork) == 0 ? 0 : 1;
}

} // namespace

TEST(LogContention, ASignalHandlerMayForkInTheMiddleOfALine) {
  if (!kAnyFork) {
    GTEST_SKIP();
  }
  const Home home;
  ASSERT_NE(::signal(SIGPROF, forkAndLog), SIG_ERR);
  const itimerval often{{0, 1000}, {0, 1000}};
  ASSERT_EQ(::setitimer(ITIMER_PROF, &often, nullptr), 0);
  while (forked < 100) {
    krLogLine(1, 0, "text");
  }
  const itimerval never{};
  ASSERT_EQ(::setitimer(ITIMER_PROF, &never, nullptr), 0);
  EXPECT_EQ(hung, 0);
  for (const std::string &line : linesOf(home.file)) {
    EXPECT_TRUE(line.ends_with(" - '' text ")) << line;
  }
}

TEST(LogContention, HandlersOfAForkMayLog) {
  const Home home;
  const auto handler = [] { krLogLine(3, 0, "handler"); };
  ASSERT_EQ(::pthread_atfork(handler, handler, handler), 0);
  EXPECT_EQ(inChild([] { return 0; }), 0);
  EXPECT_EQ(linesOf(home.file).size(), 3U);
}

TEST(Cancellation, ComesAfterTheCallAndNotInIt) {
  const Home home;
  void (*const calls[])(){
      [] { krLogLine(1, 0, "text"); },
      [] { krTraceLog("tag", "text"); },
      [] { krOpenSSL::traceStep("Start", "text"); },
      [] {
        unsigned char byte = 0;
        EXPECT_TRUE(krOpenSSL::platform::systemRandom(&byte, 1));
      },
      [] {
        krOpenSSL::callOut(
            -1, +[](int wait) { return ::poll(nullptr, 0, wait); }, 1);
      },
  };
  for (const auto call : calls) {
    const auto cancelThreads = [call] {
      if (std::freopen("/dev/null", "w", stdout) == nullptr || std::setvbuf(stdout, nullptr, _IONBF, 0) != 0) {
        return 1;
      }
      for (int i = 0; i < 100; ++i) {
        std::thread thread([call] {
          for (;;) {
            call();
            ::pthread_testcancel();
          }
        });
        std::this_thread::sleep_for(std::chrono::microseconds(10 * i));
        ::pthread_cancel(thread.native_handle());
        thread.join();
      }
      call(); // its locks are free
      return testing::Test::HasFailure() ? 1 : 0;
    };
    EXPECT_EQ(inChild(cancelThreads), 0) << "call " << &call - calls;
  }
  for (const std::string &line : linesOf(home.file)) {
    EXPECT_TRUE(line.ends_with(" - '' text ")) << line;
  }
}

TEST_F(AsRoot, SwappedLinksNeverGetALine) {
  const Home home;
  const fs::path spare = home.folder / "spare";
  const fs::path elsewhere = home.root / "elsewhere";
  fs::create_directory(elsewhere);
  put(elsewhere / "krOpenSSL.log", "untouched");
  std::atomic<bool> done{false};
  std::atomic<int> swaps{0};
  std::jthread attacker([&] {
    std::error_code ignored;
    const std::function<void()> spares[]{[&] { fs::create_symlink(home.target, spare, ignored); },
                                         [&] { fs::create_hard_link(home.target, spare, ignored); },
                                         [&] { fs::create_symlink(home.root / "nothing", spare, ignored); },
                                         [&] { put(spare, ""); }};
    while (!done) {
      for (const auto &makeSpare : spares) {
        makeSpare();
        fs::rename(spare, home.file, ignored);
        ++swaps;
      }
      fs::remove(home.file, ignored); // a name whose count falls to one while it still shows
      fs::create_hard_link(home.target, home.file, ignored);
      fs::remove(home.file, ignored);
      fs::rename(home.folder, home.root / "aside", ignored);
      fs::create_directory_symlink(elsewhere, home.folder, ignored);
      std::this_thread::yield();
      fs::remove(home.folder, ignored);
      fs::rename(home.root / "aside", home.folder, ignored);
    }
  });
  for (int i = 0; i < 10000; ++i) {
    krLogLine(1, 0, "text");
  }
  done = true;
  attacker.join();
  EXPECT_GT(swaps, 100);
  EXPECT_EQ(contentOf(home.target), "untouched");
  EXPECT_EQ(contentOf(elsewhere / "krOpenSSL.log"), "untouched");
  EXPECT_FALSE(fs::exists(home.root / "nothing"));
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
  const Home home;
  const auto exits = [&home] {
    krLogLine(4, 0, "first");
    put(home.file, std::string(kMiB, 'x'));
    krLogLine(4, 0, "rotates");
    put(home.file, std::string(kMiB, 'x'));
    logAtExit = true;
    std::exit(0);
  };
  EXPECT_EXIT(exits(), testing::ExitedWithCode(0), "");
  EXPECT_EQ(linesOf(home.file).size(), 2U);
}
