// The random numbers of forked children and dying processes.
#include "support/Draws.h"
#include "support/Race.h"
#include "support/posix/Users.h"

#include <krOpenSSL/krDelegation.h>
#include <krOpenSSL/krLifecycle.h>

#include <gtest/gtest.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/time.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <csignal>
#include <cstddef>
#include <new>

namespace {

using namespace krTest;

// What a forked child draws, after it has done what @p first says; _Fork runs no handlers.
Bytes drawnInChild(void (*first)(), pid_t (*forking)() = fork) {
  std::array<int, 2> ends{};
  EXPECT_EQ(pipe(ends.data()), 0);
  const pid_t child = forking();
  if (child == 0) {
    first();
    const Bytes bytes = draw();
    _exit(write(ends[1], bytes.data(), bytes.size()) == 32 ? 0 : 1);
  }
  close(ends[1]);
  Bytes bytes(32);
  EXPECT_EQ(read(ends[0], bytes.data(), bytes.size()), 32);
  close(ends[0]);
  waitpid(child, nullptr, 0);
  return bytes;
}

// What a child may do before it draws.
void nothing() {}
void seed() { RAND_seed(Bytes(100, 0x42).data(), 100); }
void add() { RAND_add(Bytes(100, 0x42).data(), 100, 100); }
void cleanUp() { RAND_get_rand_method()->cleanup(); }
void forkAgain() {
  draw(7);
  if (const pid_t child = fork(); child != 0) {
    waitpid(child, nullptr, 0);
    _exit(0);
  }
}

// What processes share: draws of 20 bytes each.
struct Shared {
  static constexpr std::size_t kMost = 200000;
  using Draw = std::array<unsigned char, 20>;

  static Shared &make() {
    return *new (mmap(nullptr, sizeof(Shared), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0)) Shared;
  }

  // Past OpenSSL's own lock, which no child finds free that was forked while another thread had it.
  bool draw() {
    std::array<Draw, 10> pieces;
    const int drawn = method->bytes(pieces.data()->data(), sizeof pieces);
    const std::size_t number = count.fetch_add(pieces.size());
    if (number < kMost) {
      std::ranges::copy(pieces, draws.begin() + static_cast<std::ptrdiff_t>(number));
      stored += pieces.size();
    }
    return drawn == 1 && number < kMost;
  }

  void expectNoneTwice(std::size_t atLeast) const {
    const std::size_t drawn = std::min<std::size_t>(count, kMost);
    EXPECT_GE(drawn, atLeast);
    EXPECT_EQ(std::set<Draw>(draws.begin(), draws.begin() + static_cast<std::ptrdiff_t>(drawn)).size(), drawn);
  }

  std::atomic<bool> begun{false};
  std::atomic<std::size_t> count{0};
  std::atomic<std::size_t> stored{0};
  const RAND_METHOD *method = nullptr;
  std::array<Draw, kMost> draws;
};

pid_t bareFork() { return static_cast<pid_t>(syscall(SYS_clone, SIGCHLD, 0, 0, 0, 0)); }

// As on a kernel that has no memory for it.
void refuseWipedPages() {
  std::array filter{
      sock_filter BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
      sock_filter BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_madvise, 0, 3),
      sock_filter BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, args[2])),
      sock_filter BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, MADV_WIPEONFORK, 0, 1),
      sock_filter BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | EINVAL),
      sock_filter BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
  };
  const sock_fprog program{filter.size(), filter.data()};
  ASSERT_EQ(prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) + prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program), 0);
}

// Threads fill half of what is shared while children, forked in all ways, draw as well.
void forkWhileThreadsDraw(Shared &shared) {
  std::atomic<bool> done{false};
  race([&](std::size_t thread) {
    while (thread != 0 && !done && shared.count < Shared::kMost / 2) {
      shared.draw();
    }
    for (int n = 0; thread == 0 && n < 150; ++n) {
      const auto forking = std::array<pid_t (*)(), 3>{fork, _Fork, bareFork}.at(static_cast<std::size_t>(n) % 3);
      EXPECT_EQ(inChild([&] { return shared.draw() && shared.draw() ? 0 : 1; }, forking), 0) << n;
    }
    done = done || thread == 0;
  });
}

bool getIndexes() {
  return kropenssl_get_ecdsa_idx() >= 0 && kropenssl_get_rsa_idx() >= 0 && kropenssl_get_dsa_idx() >= 0 &&
         kropenssl_get_ssl_ctx_idx() >= 0;
}

Shared *interrupted = nullptr;
std::atomic<bool> isChild{false};

// A handler that forks in the middle of a draw; the child ends it.
void forkInsideDraws(Shared &shared) {
  interrupted = &shared;
  ASSERT_NE(std::signal(SIGALRM,
                        [](int) {
                          if (_Fork() == 0) {
                            isChild = true;
                            interrupted->count.load() % 2 == 0 && interrupted->draw();
                          }
                        }),
            SIG_ERR);
  for (int n = 0; n < 100; ++n) {
    const itimerval soon{{0, 0}, {0, 100 + n}};
    setitimer(ITIMER_REAL, &soon, nullptr);
    Bytes bytes(100000);
    shared.method->bytes(bytes.data(), static_cast<int>(bytes.size()));
    const std::size_t number = shared.count.fetch_add(10);
    std::copy_n(bytes.end() - 200, 200, shared.draws.at(number).begin());
    if (isChild) {
      _exit(shared.draw() ? 0 : 1);
    }
    int status = 0;
    EXPECT_GT(waitpid(-1, &status, 0), 0);
    EXPECT_EQ(status, 0);
  }
}

} // namespace

TEST(Fork, ChildrenRepeatNeitherTheirParentNorEachOther) {
  krOSSLSetup();
  std::vector<Bytes> draws;
  for (const auto before : {nothing, cleanUp}) { // the parent's rest of a block outlives the clean-up
    for (const auto first : {nothing, seed, add, cleanUp, forkAgain}) {
      if (before == nothing || first != seed) { // a generator that is to be seeded may be seeded alike
        draw(7);
        before();
        draws.insert(draws.end(), {drawnInChild(first), drawnInChild(first, _Fork), draw()});
      }
    }
  }
  expectNoPieceTwice(draws);
  krOSSLCleanup();
}

TEST(Fork, ChildrenOfThreadsThatDrawNeitherHangNorRepeat) {
#ifdef __SANITIZE_THREAD__
  GTEST_SKIP() << "its run-time hangs in such children";
#endif
  for (const auto work : {forkWhileThreadsDraw, forkInsideDraws}) {
    for (const bool wiped : {true, false}) {
      SCOPED_TRACE(wiped);
      Shared &shared = Shared::make();
      const auto process = [&, work = work] {
        wiped ? void() : refuseWipedPages();
        krOSSLSetup();
        shared.method = RAND_get_rand_method();
        work(shared);
        return testing::Test::HasFailure() ? 1 : 0;
      };
      EXPECT_EQ(inChild(process), 0);
      shared.expectNoneTwice(200);
    }
  }
}

// It waits in its last step, for somebody to read what it prints.
TEST(Exit, ThreadsThatDrawRepeatNothing) {
  Shared &shared = Shared::make();
  std::array<int, 2> ends{};
  ASSERT_EQ(pipe(ends.data()), 0);
  const pid_t process = fork();
  if (process == 0) {
    krOSSLSetup();
    shared.method = RAND_get_rand_method();
    for (std::size_t n = 0; n < kThreads; ++n) {
      std::thread([&] {
        while (!shared.begun || shared.draw()) {
        }
      }).detach();
    }
    static std::array<char, std::size_t{1} << 20U> buffer;
    FILE *output = fdopen(ends[1], "w");
    (void)std::setvbuf(output, buffer.data(), _IOFBF, buffer.size());
    (void)std::fwrite(buffer.data(), 1, buffer.size() / 2, output);
    std::exit(0);
  }
  for (int waiting = 0; waiting < 32768; usleep(1000)) {
    ASSERT_EQ(ioctl(ends[0], FIONREAD, &waiting), 0);
  }
  shared.begun = true;
  while (shared.stored < Shared::kMost) {
    usleep(1000);
  }
  kill(process, SIGKILL);
  EXPECT_EQ(waitpid(process, nullptr, 0), process);
  shared.expectNoneTwice(Shared::kMost);
}

TEST(Fork, ChildrenOfAThreadThatMakesAnIndexHaveItToo) {
#ifdef __SANITIZE_THREAD__
  GTEST_SKIP() << "its run-time hangs in such children";
#endif
  for (int n = 0; n < 100; ++n) {
    const auto process = [n] {
      if (std::freopen("/dev/null", "w", stdout) == nullptr) {
        return 1;
      }
      std::atomic<bool> begun{false};
      std::thread([&] {
        begun = true;
        getIndexes();
        pause(); // its end takes a lock of OpenSSL 3's, whenever that is
      }).detach();
      while (!begun) {
      }
      for (int delay = 0; delay < n * 50; ++delay) {
        begun.load();
      }
      const auto makeIndexes = [] { return getIndexes() ? 0 : 1; };
      return inChild(makeIndexes) + makeIndexes();
    };
    ASSERT_EQ(inChild(process), 0) << n;
  }
}
