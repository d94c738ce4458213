// The connections that are served at the moment.
#include "Connections.h"

#include <sys/socket.h>
#include <system_error>
#include <thread>

namespace krHolder {

bool Connections::add(Descriptor connection, Serve serve) {
  const int descriptor = connection.get();
  {
    const std::lock_guard lock(mutex_);
    if (open_.size() >= limit_) {
      send(connection, encode(refusal(0, Status::busy, "the holder has as many connections as it takes")),
           Clock::now());
      return false;
    }
    open_.insert(descriptor);
  }
  try {
    std::thread([this, descriptor, own = std::move(connection), serve = std::move(serve)]() mutable {
      serve(own);
      remove(descriptor); // before it is closed: then the number may be another's
    }).detach();
  } catch (const std::system_error &) {
    remove(descriptor);
    return false;
  }
  return true;
}

std::size_t Connections::count() const {
  const std::lock_guard lock(mutex_);
  return open_.size();
}

void Connections::end(Clock::time_point deadline) {
  std::unique_lock lock(mutex_);
  for (const int descriptor : open_) {
    shutdown(descriptor, SHUT_RD);
  }
  changed_.wait_until(lock, deadline, [&] { return open_.empty(); });
}

void Connections::remove(int descriptor) {
  const std::lock_guard lock(mutex_);
  open_.erase(descriptor);
  changed_.notify_all();
}

} // namespace krHolder
