// Everything at once for a while: modes are switched while servers with delegated keys shake hands, connections live
// on, random numbers are drawn and lines are logged. For a few seconds, or as many as KR_SOAK_SECONDS says.
#include "log/TestLog.h"
#include "support/Allocations.h"
#include "support/FipsHome.h"
#include "support/Handshake.h"

#include "log/krCustomLogger.h"

#include <krOpenSSL/krFips.h>
#include <krOpenSSL/krInformation.h>
#include <krOpenSSL/krLifecycle.h>

#include <gtest/gtest.h>
#include <malloc.h>
#include <openssl/rand.h>

#include <array>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <iterator>
#include <map>
#include <mutex>
#include <optional>
#include <regex>
#include <shared_mutex>
#include <thread>

namespace {

using namespace krTest;
using Clock = std::chrono::steady_clock;

// Keeps the switches apart from other use of cryptography, as krFips.h asks. Who waits for a switch lets no more users
// in.
class Gate {
public:
  std::unique_lock<std::shared_mutex> forSwitch() {
    const std::scoped_lock turn(entrance_);
    return std::unique_lock(use_);
  }
  std::shared_lock<std::shared_mutex> forUse() {
    const std::scoped_lock turn(entrance_);
    return std::shared_lock(use_);
  }

private:
  std::mutex entrance_;
  std::shared_mutex use_;
};

struct Counts {
  std::atomic<int> switches{0};
  std::atomic<int> handshakes{0};
  std::atomic<int> handshakesOverASwitch{0};
  std::atomic<int> connectionsOverASwitch{0};
  std::atomic<int> draws{0};
};

thread_local int callbacks = 0;

int encryptElsewhere(int flen, const unsigned char *from, unsigned char *to, RSA * /*rsa*/, int padding) {
  ++callbacks;
  return RSA_private_encrypt(flen, from, to, EVP_PKEY_get0_RSA(softwareKey(Kind::rsa)), padding);
}

class Soak {
public:
  /// Has all threads work until then.
  void run(Clock::time_point end) {
    end_ = end;
    std::vector<std::jthread> threads;
    threads.emplace_back([this] { switchModes(); });
    for (const auto &[version, kind, viaProvider] :
         {std::tuple(TLS1_2_VERSION, Kind::rsa, true), std::tuple(TLS1_3_VERSION, Kind::p256, true),
          std::tuple(TLS1_3_VERSION, Kind::rsa, false)}) {
      threads.emplace_back(
          [=, this, version = version, kind = kind, viaProvider = viaProvider] { serve(version, kind, viaProvider); });
    }
    threads.emplace_back([this] { draw(); });
    for (std::size_t writer = 0; writer < written.size(); ++writer) {
      threads.emplace_back([this, writer] { log(writer); });
    }
  }

  Counts counts;
  std::array<long, 2> written{}; ///< the lines of each writer

private:
  bool goesOn() const { return Clock::now() < end_; }

  void switchModes() {
    while (goesOn()) {
      for (const auto toMode : {krFipsModeOn, krFipsModeOff}) {
        const auto alone = gate_.forSwitch();
        EXPECT_EQ(toMode(), krOpenSSL::kFipsOk);
        EXPECT_EQ(krSetWolfEngineLogLevel(1), toMode == krFipsModeOn ? 1 : 0);
        FipsHome::record().commands.clear();
        ++counts.switches;
      }
      std::this_thread::yield();
    }
  }

  void use(const std::function<void()> &work) {
    const auto use = gate_.forUse();
    work();
  }

  // A key object and its certificate serve some connections, some of which begin in the other mode.
  void serve(int version, Kind kind, bool viaProvider) {
    constexpr int kConnections = 8;
    while (goesOn()) {
      std::optional<Handshake> handshake;
      use([&] { handshake.emplace(version, "ALL", softwareKey(kind)); });
      for (int connection = 0; connection < kConnections; ++connection) {
        connect(*handshake, kind, viaProvider);
      }
      use([&] { handshake.reset(); });
    }
  }

  void connect(Handshake &handshake, Kind kind, bool viaProvider) {
    Provider provider(signsWith(softwareKey(kind)));
    use([&] {
      handshake.reconnect();
      if (viaProvider) {
        handshake.delegateTo(provider);
      }
    });
    callbacks = 0;
    shakeHands(handshake);
    EXPECT_EQ(provider.requests.size(), viaProvider ? 1U : 0U);
    EXPECT_EQ(callbacks, viaProvider ? 0 : 1);
    talk(handshake);
  }

  void shakeHands(const Handshake &handshake) {
    const int before = counts.switches;
    int finished = 0;
    for (int turn = 0; turn < 5; ++turn) {
      use([&] { finished = handshake.step(); });
    }
    EXPECT_EQ(finished, 2);
    ++counts.handshakes;
    counts.handshakesOverASwitch += counts.switches != before ? 1 : 0;
  }

  // Until a switch has come.
  void talk(const Handshake &handshake) {
    const int before = counts.switches;
    for (bool forth = true; counts.switches == before && goesOn(); forth = !forth) {
      use([&] {
        std::array<char, 16> received{};
        EXPECT_EQ(SSL_write((forth ? handshake.client : handshake.server).get(), "across a switch", 16), 16);
        EXPECT_EQ(SSL_read((forth ? handshake.server : handshake.client).get(), received.data(), 16), 16);
        EXPECT_STREQ(received.data(), "across a switch");
      });
    }
    counts.connectionsOverASwitch += counts.switches != before ? 1 : 0;
  }

  // Two draws alike would meet in their slot.
  void draw() {
    while (goesOn()) {
      use([&] {
        for (int i = 0; i < 16; ++i) {
          std::uint64_t drawn = 0;
          EXPECT_EQ(RAND_bytes(reinterpret_cast<unsigned char *>(&drawn), sizeof drawn), 1);
          EXPECT_NE(std::exchange(drawn_.at(drawn % drawn_.size()), drawn), drawn);
        }
      });
      ++counts.draws;
    }
  }

  // Needs no gate, and neither do the queries.
  void log(std::size_t writer) {
    constexpr auto kPause = std::chrono::microseconds(100);
    while (goesOn()) {
      const std::string line = "writer " + std::to_string(writer) + " line " + std::to_string(written.at(writer)++);
      krLogLine(5, 6, line.c_str());
      EXPECT_EQ(krFipsMode() / 2 + krFipsModeError() + krFipsGetState(), 0);
      EXPECT_EQ(krFipsUsingOpenSSLFIPS(), 1);
      std::this_thread::sleep_for(kPause);
    }
  }

  Gate gate_;
  Clock::time_point end_;
  std::vector<std::uint64_t> drawn_ = std::vector<std::uint64_t>(1U << 12U);
};

// Has the console trace go nowhere; to keep it would be growth.
struct Quiet {
  std::FILE *before = std::exchange(stdout, std::fopen("/dev/null", "w"));

  Quiet() = default;
  ~Quiet() { (void)std::fclose(std::exchange(stdout, before)); }
  Quiet(const Quiet &) = delete;
  Quiet &operator=(const Quiet &) = delete;
};

// What the process holds.
struct Held {
  long blocks = allocations::outstanding();
  std::size_t bytes = mallinfo2().uordblks; // nothing under a sanitizer, which looks for leaks itself
  std::ptrdiff_t files = std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {});
};

// The lines that the log holds still are whole, and of each writer the last ones without a gap: only a rotation takes
// lines away, the oldest.
void expectWholeLines(const TestLog &log, const std::array<long, 2> &written) {
  const std::regex format(
      R"(\d, c=\d \d{4}/\d\d/\d\d \d\d:\d\d:\d\d\.\d{3} p\d+ t[0-9a-f]+ [A-Za-z]+\.cpp:\d+ - '.*' .* )");
  const std::regex own(R"(5, c=6 .* writer (\d) line (\d+) )");
  std::map<std::size_t, long> last;
  for (const auto &file : {log.old, log.file}) {
    for (const std::string &line : linesOf(file)) {
      std::smatch match;
      EXPECT_TRUE(std::regex_match(line, format)) << line;
      if (std::regex_match(line, match, own)) {
        const std::size_t writer = std::stoul(match[1]);
        const long number = std::stol(match[2]);
        EXPECT_TRUE(!last.contains(writer) || number == last[writer] + 1) << line;
        last[writer] = number;
      }
    }
  }
  for (std::size_t writer = 0; writer < written.size(); ++writer) {
    EXPECT_EQ(last[writer], written.at(writer) - 1);
  }
}

std::chrono::milliseconds duration() {
  const char *seconds = std::getenv("KR_SOAK_SECONDS");
  return std::chrono::seconds(seconds != nullptr ? std::strtol(seconds, nullptr, 10) : 4);
}

} // namespace

TEST(Soak, AllAtOnceLosesNothingAndGrowsByNothing) {
  const FipsHome home;
  const TestLog log;
  const Quiet quiet;
  const Library library;
  krEngineSetRSAPrivateKeyOpCallback(encryptElsewhere, 1);
  krFipsUseOpenSSLFIPS(1);
  Soak soak;
  soak.run(Clock::now() + duration() / 4);
  const Held warm;
  soak.run(Clock::now() + duration() * 3 / 4);
  const Held held;

  constexpr long kBlocks = 8;
  constexpr std::size_t kBytes = 16 << 10U;
  EXPECT_LT(held.blocks, warm.blocks + kBlocks);
  EXPECT_LT(held.bytes, warm.bytes + kBytes);
  EXPECT_EQ(held.files, warm.files);
  for (const auto &[what, count] : {std::pair("switches", &soak.counts.switches),
                                    {"handshakes", &soak.counts.handshakes},
                                    {"handshakes over a switch", &soak.counts.handshakesOverASwitch},
                                    {"connections over a switch", &soak.counts.connectionsOverASwitch},
                                    {"draws", &soak.counts.draws}}) {
    EXPECT_GT(*count, 0) << what;
    (void)std::fprintf(stderr, "%d %s\n", count->load(), what);
  }
  expectWholeLines(log, soak.written);
}
