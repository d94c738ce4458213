// The random method over a platform that the test controls: what seeds it, and when it gives nothing.
#include "engine/qvlibRand.h"
#include "support/FakePlatform.h"

#include <krOpenSSL/krInformation.h>
#include <krOpenSSL/krLifecycle.h>
#include <krOpenSSL/kroFipsRngSha1.h>

#include <gtest/gtest.h>
#include <openssl/crypto.h>
#include <openssl/rand.h>

#include <cstdlib>
#include <functional>

namespace {

using krTest::Bytes;
namespace fake = krTest::fakePlatform;

bool drawAtExit = false;

// Runs before every static object is made, so that its handler runs when all of them are gone.
[[gnu::constructor(101)]] void registerExitHandler() {
  (void)std::atexit([] {
    unsigned char byte = 0;
    if (drawAtExit) {
      const bool drawn = RAND_bytes(&byte, 1) == 1;
      OPENSSL_cleanup();
      std::_Exit(drawn ? 0 : 1);
    }
  });
}

Bytes draw(int length = 27) {
  Bytes out(static_cast<std::size_t>(length));
  return qvlib_rand_bytes(out.data(), length) == 1 ? out : Bytes{};
}

// What a generator that goes through the same steps gives.
Bytes expected(kroFipsRngSha1 &model, std::size_t length = 27) {
  Bytes out(length);
  model.Generate(out.data(), length, nullptr, 0);
  return out;
}

void initAsSystem(kroFipsRngSha1 &model) { model.Init(fake::systemBytes(fake::drawn.size()).data(), 64, nullptr); }

} // namespace

TEST(QvlibRand, IsSeededByTheSystemUnlessTheCallerGivesEnough) {
  kroFipsRngSha1 model;
  for (const int length : {0, 10, 63, 64, 70, 1}) {
    SCOPED_TRACE(length);
    const Bytes bytes(static_cast<std::size_t>(length), 0xa5);
    fake::drawn.clear();
    qvlib_rand_add(bytes.data(), length, 8.0); // ignored as long as it is not seeded
    EXPECT_EQ(qvlib_rand_status(), 0);
    EXPECT_EQ(qvlib_rand_seed(bytes.data(), length), 0);
    EXPECT_EQ(qvlib_rand_status(), 1);
    EXPECT_EQ(fake::drawn, std::vector<std::uint32_t>(length < 64 ? 1 : 0, 64));
    if (length < 64) {
      initAsSystem(model);
    } else {
      model.Init(bytes.data(), bytes.size(), nullptr);
    }
    if (length > 0 && length < 64) {
      model.Iterate(bytes.data(), bytes.size());
    }
    EXPECT_EQ(draw(), expected(model));
    qvlib_rand_seed(bytes.data(), length);
    model.Iterate(bytes.data(), bytes.size());
    EXPECT_EQ(draw(), expected(model));
    qvlib_rand_add(bytes.data(), length, 0.0);
    model.Iterate(bytes.data(), bytes.size());
    EXPECT_EQ(draw(), expected(model));
    qvlib_rand_cleanup(); // the state stays, the rest of a block with it
  }
}

TEST(QvlibRand, GivesNothingUntilTheSystemDoes) {
  for (bool &works : {std::ref(fake::noticesForks), std::ref(fake::hasRandom)}) {
    works = false;
    qvlib_rand_cleanup();
    qvlib_rand_seed(Bytes(10).data(), 10);
    Bytes out(20, 0xee);
    EXPECT_EQ(qvlib_rand_bytes(out.data(), 20), 0);
    EXPECT_EQ(out, Bytes(20, 0xee));
    EXPECT_EQ(qvlib_rand_status(), 0);
    works = true;
    EXPECT_EQ(draw().size(), 27U);
    EXPECT_EQ(qvlib_rand_status(), 1);
  }
}

TEST(QvlibRand, RefusesNegativeCountsAndNullBuffers) {
  unsigned char byte = 0;
  qvlib_rand_seed(nullptr, 64);
  qvlib_rand_seed(&byte, -1);
  EXPECT_EQ(qvlib_rand_status(), 0);
  EXPECT_EQ(qvlib_rand_bytes(nullptr, 0), 1); // seeded now
  kroFipsRngSha1 model;
  initAsSystem(model);
  EXPECT_EQ(qvlib_rand_bytes(&byte, -1), 0);
  EXPECT_EQ(qvlib_rand_bytes(nullptr, 1), 0);
  qvlib_rand_add(&byte, -1, 0.0);
  qvlib_rand_seed(&byte, -1);
  EXPECT_EQ(draw(), expected(model));
}

TEST(QvlibRand, AChildIsSeededAgainWithoutTheRestOfItsParentsBlock) {
  for (const bool unseeded : {false, true}) {
    draw(7);
    if (unseeded) {
      qvlib_rand_cleanup();
    }
    fake::forked = true;
    const Bytes bytes = draw();
    kroFipsRngSha1 model;
    initAsSystem(model);
    EXPECT_EQ(bytes, expected(model));
    EXPECT_EQ(draw(), expected(model)); // once only
    fake::hasRandom = false;
    fake::forked = true;
    EXPECT_TRUE(draw(1).empty());
    fake::hasRandom = true;
  }
}

TEST(QvlibRandDeathTest, ServesExitHandlersThatRunAfterEveryStaticObject) {
  const auto draws = [] {
    krOSSLSetup();
    drawAtExit = true;
    std::exit(1);
  };
  EXPECT_EXIT(draws(), testing::ExitedWithCode(0), "");
}

TEST(PlatformSeed, PassesTheLow32BitsOfTheLength) {
  unsigned char byte = 0;
  EXPECT_EQ(krPlatformGetSeed(&byte, (std::size_t{1} << 32U) + 1), 1);
  EXPECT_EQ(fake::drawn, std::vector<std::uint32_t>{1});
  fake::hasRandom = false;
  EXPECT_EQ(krPlatformGetSeed(&byte, 1), 0);
}
