// Answers that come later: handshakes that are put aside, answered in any order from any thread, cancelled and refused.
#include "support/Handshake.h"

#include <krOpenSSL/krAsync.hpp>
#include <krOpenSSL/krDelegate.hpp>

#include <gtest/gtest.h>

#include <atomic>
#include <optional>
#include <thread>

namespace {

using namespace krTest;
using krOpenSSL::AsyncConnection;
using krOpenSSL::awaitReply;
using krOpenSSL::NoReply;
using krOpenSSL::Reply;
using Step = AsyncConnection::Step;

/// A key holder that has been asked and has not answered.
struct Holder {
  struct Asked {
    Reply reply;
    Bytes digest;
  };

  krOpenSSL::Signer signer() {
    return [this](const krOpenSSL::SignRequest &request, std::span<unsigned char> out) {
      const auto answer = awaitReply([&](Reply reply) {
        asked.push_back({std::move(reply), Bytes(request.digest.begin(), request.digest.end())});
      });
      std::ranges::copy(answer, out.begin());
      return answer.size();
    };
  }

  static void answer(Asked &one) { one.reply.complete(signDigest(softwareKey(Kind::p256), one.digest)); }

  std::vector<Asked> asked;
};

/// A client, and a server whose signature is awaited.
struct Peers : Handshake {
  Peers(const krOpenSSL::DelegatedKey &delegated, int version)
      : Handshake(version, "ALL", softwareKey(Kind::p256)), connection(withKey(delegated), [this] { ++wakes; }) {}

  Step turn() {
    SSL_connect(client.get());
    ERR_clear_error();
    return connection.handshake();
  }

  /// Until the server waits for an answer, or for nothing.
  Step turns() {
    Step step = turn();
    for (int i = 0; i < 5 && (step == Step::wantRead || step == Step::done); ++i) {
      step = turn();
    }
    return step;
  }

  std::atomic<int> wakes = 0;
  AsyncConnection connection;

private:
  krOpenSSL::SSLPtr withKey(const krOpenSSL::DelegatedKey &delegated) {
    delegated.bindTo(server.get());
    SSL_set_accept_state(server.get());
    return std::move(server);
  }
};

struct Async : testing::Test {
  Async() { softwareKey(Kind::p256); }
  const std::optional<krOpenSSL::Library> library{std::in_place};
  Holder holder;
  const krOpenSSL::DelegatedKey key{*library, softwareKey(Kind::p256), holder.signer()};
};

} // namespace

TEST_F(Async, HandshakesOnOneThreadAreAnsweredInAnyOrderFromOthers) {
  std::vector<std::unique_ptr<Peers>> all;
  for (int i = 0; i < 20; ++i) {
    all.push_back(std::make_unique<Peers>(key, i % 2 == 0 ? TLS1_2_VERSION : TLS1_3_VERSION));
    EXPECT_EQ(all.back()->turns(), Step::wantReply);
    ERR_put_error(ERR_LIB_USER, 0, 100, __FILE__, __LINE__); // another connection's
  }
  ASSERT_EQ(holder.asked.size(), 20U);
  EXPECT_EQ(all[0]->connection.handshake(), Step::wantReply); // not before there is an answer
  std::thread([this] { std::for_each(holder.asked.rbegin(), holder.asked.rend(), Holder::answer); }).join();
  for (const auto &peers : all) {
    EXPECT_EQ(peers->wakes, 1);
    EXPECT_EQ(peers->turns(), Step::done);
    EXPECT_TRUE(SSL_is_init_finished(peers->client.get()));
  }
}

TEST_F(Async, WhatGetsNoAnswerFailsAlone) {
  const std::function<void(Peers &)> rows[]{[this](Peers &) { holder.asked.front().reply.fail(); },
                                            [this](Peers &) { holder.asked.clear(); },
                                            [this](Peers &) { holder.asked.front().reply.complete({}); },
                                            [this](Peers &) { holder.asked.front().reply.complete(Bytes(72, 0x30)); },
                                            [this](Peers &peers) {
                                              peers.connection.cancel();
                                              EXPECT_FALSE(holder.asked.front().reply.wanted());
                                              Holder::answer(holder.asked.front());
                                              EXPECT_EQ(peers.wakes, 0);
                                            }};
  for (const auto &row : rows) {
    Peers peers(key, TLS1_3_VERSION);
    Peers other(key, TLS1_3_VERSION);
    EXPECT_EQ(peers.turns(), Step::wantReply);
    row(peers);
    EXPECT_EQ(peers.connection.handshake(), Step::failed);
    EXPECT_EQ(peers.connection.handshake(), Step::failed);
    EXPECT_EQ(other.turns(), Step::wantReply);
    Holder::answer(holder.asked.back());
    EXPECT_EQ(other.turns(), Step::done);
    holder.asked.clear();
  }
}

TEST_F(Async, ACancelledCallIsNotPutAsideAgain) {
  int tries = 0;
  const krOpenSSL::DelegatedKey patient(*library, softwareKey(Kind::p256), [&](const auto &, auto) {
    while (++tries < 3) {
      try {
        awaitReply([&](Reply reply) { holder.asked.push_back({std::move(reply), {}}); });
      } catch (const NoReply &) {
      }
    }
    return std::size_t{0};
  });
  Peers peers(patient, TLS1_3_VERSION);
  EXPECT_EQ(peers.turns(), Step::wantReply);
  peers.connection.cancel();
  EXPECT_EQ(tries, 3);
  EXPECT_EQ(holder.asked.size(), 1U);
}

TEST_F(Async, ACloseWithinTheHandshakeIsAFailure) {
  Peers peers(key, TLS1_2_VERSION);
  EXPECT_EQ(peers.turns(), Step::wantReply);
  Holder::answer(holder.asked.front());
  EXPECT_EQ(peers.connection.handshake(), Step::wantRead);
  BIO_write(SSL_get_wbio(peers.client.get()), "\x15\x03\x03\x00\x02\x01\x00", 7);
  EXPECT_EQ(peers.connection.handshake(), Step::failed);
}

TEST_F(Async, AnOverrunEndsAtTheGuardPage) {
  const std::function<int(int)> overrun = [&](int depth) {
    std::array<volatile char, 512> frame{};
    frame[0] = static_cast<char>(depth);
    return depth > 0 ? overrun(depth - 1) + frame[0] : 0;
  };
  const krOpenSSL::DelegatedKey deep(*library, softwareKey(Kind::p256),
                                     [&](const auto &, auto) { return static_cast<std::size_t>(overrun(100'000)); });
  Peers peers(deep, TLS1_3_VERSION);
  EXPECT_DEATH(peers.turns(), "");
}

TEST_F(Async, WhatWaitsGoesWithItsConnection) {
  for (const int version : {TLS1_2_VERSION, TLS1_3_VERSION}) {
    Peers peers(key, version);
    EXPECT_EQ(peers.turns(), Step::wantReply);
  }
  for (auto &asked : holder.asked) {
    EXPECT_FALSE(asked.reply.wanted());
    Holder::answer(asked);
  }
}

TEST_F(Async, MisuseIsFound) {
  Peers peers(key, TLS1_3_VERSION);
  EXPECT_EQ(peers.turns(), Step::wantReply);
  std::array<char, 4> room{};
  EXPECT_THROW(peers.connection.read(room.data(), 4), std::logic_error);
  std::thread([&] { EXPECT_THROW(peers.connection.handshake(), std::logic_error); }).join();
  Holder::answer(holder.asked.front());
  EXPECT_EQ(peers.turns(), Step::done);
  EXPECT_THROW(AsyncConnection(nullptr, [] {}), std::invalid_argument);
  EXPECT_THROW(peers.connection.write("", 0), std::invalid_argument);

  Peers *inside = nullptr;
  const krOpenSSL::DelegatedKey steps(*library, softwareKey(Kind::p256), [&](const auto &, auto) {
    EXPECT_THROW(inside->connection.handshake(), std::logic_error);
    inside->connection.cancel();
    return std::size_t{0};
  });
  Peers withinItself(steps, TLS1_3_VERSION);
  inside = &withinItself;
  EXPECT_EQ(withinItself.turns(), Step::failed);

  Peers inCatch(key, TLS1_3_VERSION);
  try {
    throw NoReply("any");
  } catch (const NoReply &) {
    EXPECT_EQ(inCatch.turns(), Step::failed);
  }

  auto elsewhere = std::make_unique<Peers>(key, TLS1_3_VERSION);
  EXPECT_EQ(elsewhere->turns(), Step::wantReply);
  std::thread([&] { elsewhere->connection.cancel(); }).join();
  EXPECT_EQ(elsewhere->connection.handshake(), Step::failed);
}

TEST_F(Async, OutsideAStepTheThreadWaits) {
  std::thread holding;
  EXPECT_EQ(awaitReply([&](Reply reply) {
              holding = std::thread([held = std::move(reply)]() mutable { held.complete({1, 2}); });
            }),
            (std::vector<unsigned char>{1, 2}));
  holding.join();
  EXPECT_THROW(awaitReply([](Reply) {}), NoReply);
  EXPECT_THROW(awaitReply([](Reply) { throw std::bad_alloc(); }), std::bad_alloc);
}

TEST_F(Async, DataFlowAndThePeersEndIsSeen) {
  Peers peers(key, TLS1_2_VERSION);
  EXPECT_EQ(peers.turns(), Step::wantReply);
  Holder::answer(holder.asked.front());
  EXPECT_EQ(peers.turns(), Step::done);
  std::array<char, 8> room{};
  EXPECT_EQ(peers.connection.read(room.data(), 8), 0);
  EXPECT_EQ(peers.connection.last(), Step::wantRead);
  EXPECT_EQ(peers.connection.write("hello", 5), 5);
  EXPECT_EQ(SSL_read(peers.client.get(), room.data(), 8), 5);
  SSL_shutdown(peers.client.get());
  EXPECT_EQ(peers.connection.read(room.data(), 8), 0);
  EXPECT_EQ(peers.connection.last(), Step::done);
}

TEST_F(Async, ThousandsWaitAtOnce) {
  std::vector<std::unique_ptr<Peers>> all;
  for (int i = 0; i < KR_TEST_WAITING; ++i) {
    all.push_back(std::make_unique<Peers>(key, TLS1_3_VERSION));
    ASSERT_EQ(all.back()->turns(), Step::wantReply);
  }
  std::ranges::for_each(holder.asked, Holder::answer);
  EXPECT_TRUE(std::ranges::all_of(all, [](const auto &peers) { return peers->turns() == Step::done; }));
}
