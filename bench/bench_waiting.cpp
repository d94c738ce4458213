// Handshakes whose key holder is some time away: in flight on one thread, against a thread that waits for each, 16 of
// them, and a plain key. The holder is a thread of this process that answers each request after that time.
#include "Bench.h"
#include "Scene.h"

#include <krOpenSSL/krAsync.hpp>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <deque>
#include <mutex>
#include <thread>

namespace {

using namespace krOpenSSL;
using Clock = std::chrono::steady_clock;

/// A queue between threads.
template <class Entry> class Channel {
public:
  void put(Entry entry) {
    const std::scoped_lock lock(mutex_);
    entries_.push_back(std::move(entry));
    there_.notify_one();
  }
  Entry take() {
    std::unique_lock lock(mutex_);
    there_.wait(lock, [this] { return !entries_.empty(); });
    Entry entry = std::move(entries_.front());
    entries_.pop_front();
    return entry;
  }

private:
  std::mutex mutex_;
  std::condition_variable there_;
  std::deque<Entry> entries_;
};

class DistantHolder {
public:
  explicit DistantHolder(std::chrono::milliseconds distance) : distance_(distance), thread_([this] { run(); }) {}
  ~DistantHolder() { requests_.put({std::nullopt, {}, Clock::now()}); }
  DistantHolder(const DistantHolder &) = delete;
  DistantHolder &operator=(const DistantHolder &) = delete;

  std::size_t sign(const SignRequest &request, std::span<unsigned char> out) {
    const auto answer = awaitReply([&](Reply reply) {
      requests_.put({std::move(reply), {request.digest.begin(), request.digest.end()}, Clock::now() + distance_});
    });
    std::ranges::copy(answer, out.begin());
    return answer.size();
  }

private:
  struct Request {
    std::optional<Reply> reply; // none: the end
    std::vector<unsigned char> digest;
    Clock::time_point due;
  };

  void run() {
    for (Request request = requests_.take(); request.reply; request = requests_.take()) {
      std::this_thread::sleep_until(request.due); // they come in the order in which they are due
      std::vector<unsigned char> signature(static_cast<std::size_t>(EVP_PKEY_size(bench::ownKey(bench::Kind::ec))));
      signature.resize(bench::signByOwnKey(bench::Kind::ec, request.digest, signature.data()));
      request.reply->complete(std::move(signature));
    }
  }

  std::chrono::milliseconds distance_;
  Channel<Request> requests_;
  std::jthread thread_;
};

/// The holder, its key, and the two contexts.
struct Place {
  explicit Place(std::chrono::milliseconds distance) : holder(distance) {
    SSL_CTX_use_certificate(server.get(), bench::certify(bench::ownKey(bench::Kind::ec)).get());
    SSL_CTX_set_session_cache_mode(server.get(), SSL_SESS_CACHE_OFF);
    key.prepare(server.get());
  }

  DistantHolder holder;
  Library library;
  DelegatedKey key{
      library, bench::ownKey(bench::Kind::ec),
      [this](const SignRequest &request, std::span<unsigned char> out) { return holder.sign(request, out); }};
  SSLCtxPtr server = bench::makeContext(TLS_server_method(), TLS1_3_VERSION);
  SSLCtxPtr client = bench::makeContext(TLS_client_method(), TLS1_3_VERSION);
};

bool playBlocking(const Place &place) {
  const SSLPtr server(SSL_new(place.server.get()));
  const SSLPtr client(SSL_new(place.client.get()));
  place.key.bindTo(server.get());
  return bench::shakeHands(server.get(), client.get());
}

/// So many handshakes in flight on this thread. Each call goes on until one is done, and begins another.
class Flight {
public:
  Flight(std::shared_ptr<const Place> place, std::size_t count) : place_(std::move(place)), pairs_(count) {
    for (std::size_t i = 0; i < count; ++i) {
      begin(i);
    }
    for (std::size_t i = 0; i < count; ++i) { // until as many are done as began together
      (*this)();
    }
  }

  bool operator()() {
    for (;;) {
      const std::size_t next = ready_->take();
      switch (goOn(pairs_[next])) {
      case AsyncConnection::Step::wantReply:
        break;
      case AsyncConnection::Step::done:
        begin(next);
        return true;
      default:
        return false;
      }
    }
  }

private:
  struct Pair {
    SSLPtr client;
    std::unique_ptr<AsyncConnection> server;
  };

  void begin(std::size_t place) {
    SSLPtr server(SSL_new(place_->server.get()));
    SSLPtr client(SSL_new(place_->client.get()));
    BIO *serverSide = nullptr;
    BIO *clientSide = nullptr;
    BIO_new_bio_pair(&serverSide, 0, &clientSide, 0);
    SSL_set_bio(server.get(), serverSide, serverSide);
    SSL_set_bio(client.get(), clientSide, clientSide);
    SSL_set_accept_state(server.get());
    place_->key.bindTo(server.get());
    const auto wake = [ready = ready_, place] { ready->put(place); };
    pairs_[place] = {std::move(client), std::make_unique<AsyncConnection>(std::move(server), wake)};
    ready_->put(place);
  }

  static AsyncConnection::Step goOn(const Pair &pair) {
    AsyncConnection::Step step{};
    do {
      SSL_connect(pair.client.get());
      step = pair.server->handshake();
    } while (step == AsyncConnection::Step::wantRead);
    return step;
  }

  std::shared_ptr<const Place> place_;
  std::shared_ptr<Channel<std::size_t>> ready_ = std::make_shared<Channel<std::size_t>>();
  std::vector<Pair> pairs_;
};

/// Iterations are given, since in flight each trial would begin with as many handshakes more; there they are a multiple
/// of those, which begin and end in waves.
void addDistance(int milliseconds) {
  constexpr int kHandshakes = 200;
  const int blockingHandshakes = std::clamp(kHandshakes / std::max(1, milliseconds), 5, kHandshakes / 2);
  const auto place = std::make_shared<const Place>(std::chrono::milliseconds(milliseconds));
  const std::string topic = "waiting/" + std::to_string(milliseconds) + " ms/";
  const auto blocking = [place] { return [place] { return playBlocking(*place); }; };
  const auto scene = std::make_shared<const bench::Scene>(bench::kSuites[8]);
  bench::add(topic + "plain key", [scene] { return [scene] { return scene->play(); }; })
      ->Iterations(kHandshakes)
      ->UseRealTime();
  bench::add(topic + "blocking", blocking)->Iterations(blockingHandshakes)->UseRealTime();
  bench::add(topic + "16 threads", blocking)->Threads(16)->Iterations(blockingHandshakes)->UseRealTime();
  for (const std::size_t count : {1U, 64U, 256U, 1000U}) {
    bench::add(topic + std::to_string(count) + " in flight", [place, count] { return Flight(place, count); })
        ->Iterations(count == 1 ? blockingHandshakes
                                : static_cast<int>(count * std::max<std::size_t>(1, kHandshakes / count)))
        ->UseRealTime();
  }
}

void registerAll() {
  for (const int milliseconds : {0, 1, 10, 50}) {
    addDistance(milliseconds);
  }
}

} // namespace

int main(int argc, char **argv) {
  bench::ownKey(bench::Kind::ec); // before set-up
  return bench::run(argc, argv, registerAll);
}
