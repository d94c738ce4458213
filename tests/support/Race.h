// Threads that begin together.
#pragma once

#include <barrier>
#include <functional>
#include <thread>
#include <vector>

namespace krTest {

inline constexpr std::size_t kThreads = 8;

/// Runs the work in each thread, with the thread's number.
inline void race(const std::function<void(std::size_t)> &work) {
  std::barrier start(kThreads);
  std::vector<std::jthread> threads;
  for (std::size_t i = 0; i < kThreads; ++i) {
    threads.emplace_back([&, i] {
      start.arrive_and_wait();
      work(i);
    });
  }
}

} // namespace krTest
