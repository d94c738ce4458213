// Noticing forks: the handlers of pthread_atfork, and for forks that run none a mark in memory that children get
// wiped, or the process id where the kernel has no such memory.
#include "platform/Platform.h"

#include <pthread.h>
#include <sys/mman.h>
#include <unistd.h>

#include <atomic>
#include <new>

namespace krOpenSSL::platform {
namespace {

using Mark = std::atomic<bool>;

constinit std::atomic<Mark *> ownMark{nullptr};
constinit std::atomic<pid_t> ownProcess{0};

// An emulator may accept any advice and follow none: so it is asked about one that does not exist.
bool wipeInChildren(void *page, std::size_t size) noexcept {
  constexpr int kNoAdvice = -1;
  return madvise(page, size, kNoAdvice) != 0 && madvise(page, size, MADV_WIPEONFORK) == 0;
}

Mark *makeMark() noexcept {
  const auto size = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
  void *page = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  if (page == MAP_FAILED) {
    return nullptr;
  }
  if (!wipeInChildren(page, size)) {
    munmap(page, size);
    return nullptr;
  }
  return new (page) Mark(true);
}

} // namespace

bool watchForks(void (*inChild)()) noexcept {
  if (ownMark.load() == nullptr) {
    ownMark.store(makeMark());
  }
  ownProcess.store(getpid());
  return pthread_atfork(nullptr, nullptr, inChild) == 0;
}

// The mark is wanted for its speed: a system call for each random number would cost more than the number.
bool firstInForkedChild() noexcept {
  if (Mark *mark = ownMark.load(); mark != nullptr) {
    return !mark->exchange(true);
  }
  const pid_t process = getpid();
  return ownProcess.exchange(process) != process;
}

bool holdAcrossForks(void (*before)(), void (*after)()) noexcept { return pthread_atfork(before, after, after) == 0; }

std::int64_t processId() noexcept { return getpid(); }

} // namespace krOpenSSL::platform
