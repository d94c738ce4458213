// Sessions for operations that run at once: opened when they are needed, kept, and bounded in number.
#pragma once

#include "Session.h"

#include <chrono>
#include <condition_variable>
#include <functional>
#include <map>
#include <mutex>
#include <string>

namespace krHolder::pkcs11 {

/// A session and the keys as that session knows them, by their public halves' DER.
struct KeySession {
  std::unique_ptr<Session> session;
  std::map<std::string, CK_OBJECT_HANDLE> keys;
};

/// Several threads may use it at once.
class SessionPool {
public:
  using Open = std::function<KeySession()>;

  SessionPool(Open open, std::size_t limit, std::chrono::milliseconds patience)
      : open_(std::move(open)), limit_(limit), patience_(patience) {}

  /// One of the places that sessions can have. Waits for a free one, and throws a Failure when its patience ends.
  class Place {
  public:
    explicit Place(SessionPool &pool);
    ~Place();
    Place(const Place &) = delete;
    Place &operator=(const Place &) = delete;

  private:
    SessionPool &pool_;
  };

  /// A session for one thread. It is closed with its lease unless it was given back.
  class Lease {
  public:
    explicit Lease(SessionPool &pool) : pool_(pool), place_(pool), session_(pool.idleOrNew()) {}

    const Session &session() const { return *session_.session; }
    std::map<std::string, CK_OBJECT_HANDLE> &keys() { return session_.keys; }
    void giveBack() { pool_.keep(std::move(session_)); }

  private:
    SessionPool &pool_;
    Place place_; // free once the session is closed
    KeySession session_;
  };

  /// Closes the sessions that nobody uses.
  void closeIdle();

private:
  KeySession idleOrNew();
  void keep(KeySession session);

  const Open open_;
  const std::size_t limit_;
  const std::chrono::milliseconds patience_;
  std::mutex mutex_;
  std::condition_variable placeFree_;
  std::size_t taken_ = 0;
  std::vector<KeySession> idle_;
};

} // namespace krHolder::pkcs11
