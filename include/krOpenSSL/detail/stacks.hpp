/// @file
/// The stacks of krAsync.hpp, and what the sanitizers are told of them. Nothing here is for callers.
#pragma once

#include <krOpenSSL/krOpenSSLVersion.h> // refuses other versions, as every header does

#include <boost/context/protected_fixedsize_stack.hpp>

#ifndef _WIN32
#include <sys/mman.h>
#endif

#include <cstddef>
#include <mutex>
#include <new>
#include <vector>

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define KR_SANITIZED_STACKS
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define KR_SANITIZED_STACKS
#endif
#endif

#ifdef KR_SANITIZED_STACKS
extern "C" {
// Whichever of the two is there.
[[gnu::weak]] void __sanitizer_start_switch_fiber(void **fakeStack, const void *bottom, std::size_t size);
[[gnu::weak]] void __sanitizer_finish_switch_fiber(void *fakeStack, const void **oldBottom, std::size_t *oldSize);
[[gnu::weak]] void *__tsan_get_current_fiber(void);
[[gnu::weak]] void *__tsan_create_fiber(unsigned flags);
[[gnu::weak]] void __tsan_destroy_fiber(void *fiber);
[[gnu::weak]] void __tsan_switch_to_fiber(void *fiber, unsigned flags);
}
#endif

namespace krOpenSSL::detail {

/// A stack with a page below it that ends the process. Boost takes that page without a look whether it came to be, and
/// it does not where the process has as many mappings as the system allows.
/// @throws std::bad_alloc
inline boost::context::stack_context makeGuardedStack(std::size_t bytes) {
  boost::context::protected_fixedsize_stack stacks(bytes);
  boost::context::stack_context stack = stacks.allocate();
  void *guard = static_cast<char *>(stack.sp) - stack.size;
  const std::size_t size = boost::context::stack_traits::page_size();
#ifdef _WIN32
  DWORD before = 0;
  const bool guarded = VirtualProtect(guard, size, PAGE_NOACCESS, &before) != 0;
#else
  const bool guarded = mprotect(guard, size, PROT_NONE) == 0;
#endif
  if (!guarded) {
    stacks.deallocate(stack);
    throw std::bad_alloc();
  }
  return stack;
}

/// Stacks with a guard page. Some of those given back are kept for the next; what needs one more than those makes it.
class StackPool {
public:
  static StackPool &only() {
    static StackPool &pool = *new StackPool; // stays, for connections that end after it would
    return pool;
  }

  boost::context::stack_context take() {
    {
      const std::scoped_lock lock(mutex_);
      if (!kept_.empty()) {
        const boost::context::stack_context stack = kept_.back();
        kept_.pop_back();
        return stack;
      }
    }
    return makeGuardedStack(kBytes);
  }

  void giveBack(boost::context::stack_context &stack) noexcept {
    {
      const std::scoped_lock lock(mutex_);
      if (kept_.size() < kMostKept) {
        kept_.push_back(stack);
        return;
      }
    }
    boost::context::protected_fixedsize_stack(kBytes).deallocate(stack);
  }

private:
  static constexpr std::size_t kBytes = std::size_t{128} << 10U; // the guard page comes on top
  static constexpr std::size_t kMostKept = 64;

  StackPool() { kept_.reserve(kMostKept); }

  std::mutex mutex_;
  std::vector<boost::context::stack_context> kept_;
};

/// What the sanitizers know of two stacks that take turns: that of the work, and that of who calls it.
class StackTurns {
public:
#ifdef KR_SANITIZED_STACKS
  void begin(const boost::context::stack_context &stack) {
    work_ = {static_cast<char *>(stack.sp) - stack.size, stack.size};
    if (__tsan_create_fiber != nullptr) {
      workFiber_ = __tsan_create_fiber(0);
    }
  }
  void beforeWork() { leave(&callerFake_, work_, workFiber_, &callerFiber_); }
  void afterWork() { arrive(callerFake_, nullptr); }
  void atWork(bool first) { arrive(first ? nullptr : workFake_, &caller_); }
  void beforeCaller() { leave(&workFake_, caller_, callerFiber_, nullptr); }
  void atLast() { leave(nullptr, caller_, callerFiber_, nullptr); } // the work comes back no more
  void end() {
    if (workFiber_ != nullptr) {
      __tsan_destroy_fiber(workFiber_);
      workFiber_ = nullptr;
    }
  }

private:
  struct Extent {
    const void *bottom = nullptr;
    std::size_t size = 0;
  };

  static void leave(void **fake, const Extent &to, void *fiber, void **current) {
    if (__sanitizer_start_switch_fiber != nullptr) {
      __sanitizer_start_switch_fiber(fake, to.bottom, to.size);
    }
    if (__tsan_switch_to_fiber != nullptr) {
      if (current != nullptr) {
        *current = __tsan_get_current_fiber();
      }
      __tsan_switch_to_fiber(fiber, 0);
    }
  }
  static void arrive(void *fake, Extent *from) {
    if (__sanitizer_finish_switch_fiber != nullptr) {
      __sanitizer_finish_switch_fiber(fake, from != nullptr ? &from->bottom : nullptr,
                                      from != nullptr ? &from->size : nullptr);
    }
  }

  Extent work_, caller_;
  void *workFake_ = nullptr, *callerFake_ = nullptr;
  void *workFiber_ = nullptr, *callerFiber_ = nullptr;
#else
  void begin(const boost::context::stack_context & /*stack*/) noexcept {}
  void beforeWork() noexcept {}
  void afterWork() noexcept {}
  void atWork(bool /*first*/) noexcept {}
  void beforeCaller() noexcept {}
  void atLast() noexcept {}
  void end() noexcept {}
#endif
};

} // namespace krOpenSSL::detail
