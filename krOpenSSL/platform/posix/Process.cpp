// The process, its forks and its threads.
#include "platform/Platform.h"

#include <pthread.h>
#include <unistd.h>

#include <atomic>

namespace krOpenSSL::platform {
namespace {

struct Numbers {
  std::int64_t process;
  std::uint32_t thread;
  std::uint32_t generation;
};
constinit thread_local Numbers known{};
constinit std::atomic<std::uint32_t> generation{1};

// Without a system call for each line.
const Numbers &numbers() noexcept {
  if (const std::uint32_t now = generation.load(std::memory_order_relaxed); known.generation != now) {
    known.process = ::getpid();
    known.thread = static_cast<std::uint32_t>(::gettid());
    std::atomic_signal_fence(std::memory_order_release); // a signal handler finds both, or asks itself
    known.generation = now;
  }
  return known;
}

} // namespace

bool holdAcrossForks(void (*before)(), void (*after)()) noexcept { return pthread_atfork(before, after, after) == 0; }

std::int64_t processId() noexcept { return numbers().process; }

std::uint32_t threadId() noexcept { return numbers().thread; }

void forgetNumbers() noexcept { generation.fetch_add(1); }

} // namespace krOpenSSL::platform
