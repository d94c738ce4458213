// Modes are switched for a while, with what that logs, while servers with delegated keys shake hands. For a few
// seconds, or as many as KR_SOAK_SECONDS says.
#include "support/Allocations.h"
#include "support/Callbacks.h"
#include "support/FipsHome.h"
#include "support/Handshake.h"

#include <krOpenSSL/krFips.h>
#include <krOpenSSL/krLifecycle.h>

#include <gtest/gtest.h>
#include <malloc.h>

#include <array>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <iterator>
#include <mutex>
#include <shared_mutex>
#include <thread>

namespace {

using namespace krTest;
using Clock = std::chrono::steady_clock;

// Keeps the switches apart from other use of cryptography, as krFips.h asks. Who waits for a switch lets no more users
// in.
std::mutex entrance;
std::shared_mutex gate;

template <class Lock> Lock enter() {
  const std::scoped_lock turn(entrance);
  return Lock(gate);
}

std::atomic<int> switches{0}, handshakes{0}, handshakesOverASwitch{0};

void switchModes() {
  for (const auto toMode : {krFipsModeOn, krFipsModeOff}) {
    const auto alone = enter<std::unique_lock<std::shared_mutex>>();
    EXPECT_EQ(toMode(), krOpenSSL::kFipsOk);
    EXPECT_EQ(krSetWolfEngineLogLevel(1), toMode == krFipsModeOn ? 1 : 0);
    FipsHome::record().commands.clear();
    ++switches;
  }
}

void use(const std::function<void()> &work) {
  const auto entered = enter<std::shared_lock<std::shared_mutex>>();
  work();
}

// A key object and its certificate serve some connections, some of which begin in the other mode.
template <int kVersion, Kind kKind, bool kViaProvider> void serve() {
  std::unique_ptr<Handshake> handshake;
  use([&] { handshake = std::make_unique<Handshake>(kVersion, "ALL", softwareKey(kKind)); });
  for (int connection = 0; connection < 8; ++connection) {
    Provider provider(signsWith(softwareKey(kKind)));
    const int before = switches;
    int finished = 0;
    callbacks = 0;
    use([&] {
      handshake->reconnect();
      kViaProvider ? handshake->delegateTo(provider) : void();
    });
    for (int turn = 0; turn < 5; ++turn) {
      use([&] { finished = handshake->step(); });
    }
    EXPECT_EQ(finished, 2);
    EXPECT_EQ(kViaProvider ? static_cast<int>(provider.requests.size()) : callbacks, 1);
    ++handshakes;
    handshakesOverASwitch += switches != before ? 1 : 0;
  }
  use([&] { handshake.reset(); });
}

void runAll(Clock::duration time) {
  const Clock::time_point end = Clock::now() + time;
  std::vector<std::jthread> threads;
  for (const auto work : {switchModes, serve<TLS1_2_VERSION, Kind::rsa, true>, serve<TLS1_3_VERSION, Kind::p256, true>,
                          serve<TLS1_3_VERSION, Kind::rsa, false>}) {
    threads.emplace_back([=] {
      while (Clock::now() < end) {
        work();
      }
    });
  }
}

// What the process holds.
struct Held {
  long blocks = allocations::outstanding();
  std::size_t bytes = mallinfo2().uordblks; // nothing under a sanitizer, which looks for leaks itself
  std::ptrdiff_t files = std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {});
};

} // namespace

TEST(Soak, AllAtOnceLosesNothingAndGrowsByNothing) {
  const FipsHome home;
  ASSERT_NE(std::freopen("/dev/null", "w", stdout), nullptr); // to keep the console trace would be growth
  const Library library;
  krEngineSetRSAPrivateKeyOpCallback(rsaElsewhere<RSA_private_encrypt>, 1);
  krFipsUseOpenSSLFIPS(1);
  const char *chosen = std::getenv("KR_SOAK_SECONDS");
  const auto time = std::chrono::milliseconds(chosen != nullptr ? 250 * std::strtol(chosen, nullptr, 10) : 1000);
  runAll(time);
  const Held warm;
  runAll(3 * time);
  const Held held;

  EXPECT_LT(held.blocks, warm.blocks + 8);
  EXPECT_LT(held.bytes, warm.bytes + (16U << 10U));
  EXPECT_EQ(held.files, warm.files);
  for (const auto *count : {&switches, &handshakes, &handshakesOverASwitch}) {
    EXPECT_GT(*count, 0);
    (void)std::fprintf(stderr, "%d\n", count->load());
  }
}
