// Taking, keeping, closing. No session is opened or closed under the lock.
#include "SessionPool.h"

#include "Failure.h"

namespace krHolder::pkcs11 {

SessionPool::Place::Place(SessionPool &pool) : pool_(pool) {
  std::unique_lock lock(pool_.mutex_);
  if (!pool_.placeFree_.wait_for(lock, pool_.patience_, [this] { return pool_.taken_ < pool_.limit_; })) {
    throw Failure("all " + std::to_string(pool_.limit_) + " sessions with the token were busy for too long");
  }
  ++pool_.taken_;
}

SessionPool::Place::~Place() {
  const std::scoped_lock lock(pool_.mutex_);
  --pool_.taken_;
  pool_.placeFree_.notify_one();
}

void SessionPool::closeIdle() {
  std::vector<KeySession> closing;
  const std::scoped_lock lock(mutex_);
  closing.swap(idle_);
}

KeySession SessionPool::idleOrNew() {
  {
    const std::scoped_lock lock(mutex_);
    if (!idle_.empty()) {
      KeySession session = std::move(idle_.back());
      idle_.pop_back();
      return session;
    }
  }
  return open_();
}

void SessionPool::keep(KeySession session) {
  const std::scoped_lock lock(mutex_);
  idle_.push_back(std::move(session));
}

} // namespace krHolder::pkcs11
