// The lock is one word: which process it belongs to, and its state. It lies in memory that children get wiped, so
// that a child finds another process in it than its own. Where the kernel has no such memory, the process is
// named by its id, for a system call each time.
#include "platform/ForkLock.h"

#include <pthread.h>
#include <sys/mman.h>
#include <unistd.h>

#include <new>

namespace krOpenSSL::platform {
namespace {

enum State : std::uint32_t { kFree, kHeld, kWaitedFor, kStateBits = 3 };

// Any number but the 0 of a wiped page.
constexpr std::uint32_t kUnwiped = 1U << 2U;

// Told by the handlers of fork, since a grandchild may get the id of the first process.
constinit std::atomic<std::uint32_t> generation{0};
constinit std::atomic<bool> countsGenerations{false};

std::uint32_t processByNumber() noexcept {
  constexpr std::uint32_t kProcessIdBits = 22;
  return (static_cast<std::uint32_t>(getpid()) + (generation.load() << kProcessIdBits)) << 2U;
}

// An emulator may accept any advice and follow none: so it is asked about one that does not exist.
bool wipeInChildren(void *page, std::size_t size) noexcept {
  constexpr int kNoAdvice = -1;
  return madvise(page, size, kNoAdvice) != 0 && madvise(page, size, MADV_WIPEONFORK) == 0;
}

std::size_t pageBytes() noexcept { return static_cast<std::size_t>(sysconf(_SC_PAGESIZE)); }

void *makeWipedPage() noexcept {
  const std::size_t size = pageBytes();
  void *page = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  if (page == MAP_FAILED) {
    return nullptr;
  }
  if (!wipeInChildren(page, size)) {
    munmap(page, size);
    return nullptr;
  }
  return page;
}

} // namespace

std::uint32_t ForkLock::processOf(const Word &word) const noexcept {
  return &word == &own_ ? processByNumber() : kUnwiped;
}

// Of threads that get here at once, all take the word of the first.
ForkLock::Word &ForkLock::word() noexcept {
  Word *found = word_.load(std::memory_order_acquire);
  if (found != nullptr) {
    return *found;
  }
  void *page = makeWipedPage();
  Word *made = page != nullptr ? new (page) Word(kUnwiped | kFree) : &own_;
  if (page == nullptr) {
    std::uint32_t unused = 0;
    own_.compare_exchange_strong(unused, processByNumber() | kFree);
  }
  if (word_.compare_exchange_strong(found, made)) {
    return *made;
  }
  if (page != nullptr) {
    munmap(page, pageBytes());
  }
  return *found;
}

bool ForkLock::lock() noexcept {
  Word &word = this->word();
  const std::uint32_t process = processOf(word);
  std::uint32_t found = process | kFree;
  if (word.compare_exchange_strong(found, process | kHeld, std::memory_order_acquire)) {
    return false;
  }
  for (;;) {
    const bool ofParent = (found & ~kStateBits) != process;
    if (ofParent || (found & kStateBits) == kFree) {
      // Another thread may be waiting: what is woken in vain waits again.
      if (word.compare_exchange_weak(found, process | kWaitedFor, std::memory_order_acquire)) {
        return ofParent;
      }
    } else if (found == (process | kWaitedFor) || word.compare_exchange_weak(found, process | kWaitedFor)) {
      word.wait(process | kWaitedFor);
      found = word.load();
    }
  }
}

std::optional<bool> ForkLock::tryLock() noexcept {
  Word &word = this->word();
  const std::uint32_t process = processOf(word);
  std::uint32_t found = word.load(std::memory_order_relaxed);
  const bool ofParent = (found & ~kStateBits) != process;
  const bool taken = (ofParent || (found & kStateBits) == kFree) &&
                     word.compare_exchange_strong(found, process | kHeld, std::memory_order_acquire);
  return taken ? std::optional(ofParent) : std::nullopt;
}

bool ForkLock::unlock() noexcept {
  Word &word = *word_.load(std::memory_order_relaxed);
  const std::uint32_t process = processOf(word);
  std::uint32_t found = process | kHeld;
  if (word.compare_exchange_strong(found, process | kFree, std::memory_order_release)) {
    return true;
  }
  if (found != (process | kWaitedFor)) {
    return false;
  }
  word.store(process | kFree, std::memory_order_release);
  word.notify_one(); // a system call, time enough for a fork
  return (word.load(std::memory_order_relaxed) & ~kStateBits) == processOf(word);
}

bool ForkLock::isHeld() const noexcept {
  const Word *word = word_.load(std::memory_order_relaxed);
  const std::uint32_t state = word != nullptr ? word->load(std::memory_order_relaxed) - processOf(*word) : kFree;
  return state == kHeld || state == kWaitedFor;
}

bool ForkLock::noticesForks() noexcept {
  if (word_.load(std::memory_order_relaxed) == &own_ && !countsGenerations.load()) {
    countsGenerations.store(pthread_atfork(nullptr, nullptr, [] { generation.fetch_add(1); }) == 0);
    return countsGenerations.load();
  }
  return true;
}

} // namespace krOpenSSL::platform
