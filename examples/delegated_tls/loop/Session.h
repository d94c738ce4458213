// One TLS connection on an event loop. It has one deadline for all that it does, and costs no thread while it waits for
// its client or for the key holder.
#pragma once

#include "Service.h"

#include <krOpenSSL/krAsync.hpp>

#include <asio.hpp>

#include <array>
#include <atomic>
#include <unordered_set>

namespace delegated_tls {

class Session;

/// A loop, which one thread runs, and its sessions.
struct Loop {
  explicit Loop(Service &toServe) : service(toServe) {}

  Service &service;
  asio::io_context io{1};
  std::unordered_set<Session *> sessions;
  bool stops = false;                      ///< no session starts any more
  std::array<unsigned char, 16384> part{}; ///< what was read, on the way to its connection
  std::atomic<unsigned> waiting{0};        ///< handshakes that wait for the key holder
};

/// Keeps itself until its connection is over. All calls on the loop's thread.
class Session : public std::enable_shared_from_this<Session> {
public:
  Session(Loop &loop, asio::ip::tcp::socket socket);
  ~Session();
  Session(const Session &) = delete;
  Session &operator=(const Session &) = delete;

  void start();

  /// The server stops: what is under way has a moment to end.
  void stop();

private:
  using Step = krOpenSSL::AsyncConnection::Step;

  // The stages of a connection. Each takes one step, and names the next stage when it is done.
  Step shakeHands();
  Step readRequest();
  Step writeAnswer();
  Step close();

  void open();
  void goOn();
  void fail(const std::string &reason);
  void note(Step step);
  void setDeadline(std::chrono::steady_clock::time_point deadline);
  void timeIsUp();
  void receive();
  void received();
  void clientHasGone();
  void flush();
  void finish();
  void end();

  Loop &loop_;
  asio::ip::tcp::socket socket_;
  asio::steady_timer timer_;
  std::string client_;
  std::unique_ptr<krOpenSSL::AsyncConnection> connection_;
  BIO *in_ = nullptr;  // the connection's: what came
  BIO *out_ = nullptr; // what is to go
  Step (Session::*stage_)() = &Session::shakeHands;
  std::string_view failure_ = "handshake failed"; // of this stage
  std::string agreed_;
  std::string request_;
  std::string answer_;
  std::vector<unsigned char> sending_;
  bool hasSpoken_ = false; // the client
  bool isWaiting_ = false; // for the key holder
  bool isReading_ = false;
  bool isOver_ = false; // the last bytes are on their way
  bool hasEnded_ = false;
};

} // namespace delegated_tls
