// Threads for calls that take their time: a token's answers come later than its callers go on.
#pragma once

#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

namespace delegated_tls {

class Workers {
public:
  using Task = std::function<void()>; ///< must not throw

  explicit Workers(std::size_t count) {
    for (std::size_t i = 0; i < count; ++i) {
      threads_.emplace_back([this](const std::stop_token &stop) { run(stop); });
    }
  }
  ~Workers() { // what waits is done first: somebody waits for it
    for (std::jthread &thread : threads_) {
      thread.request_stop();
    }
  }
  Workers(const Workers &) = delete;
  Workers &operator=(const Workers &) = delete;

  void post(Task task) {
    const std::scoped_lock lock(mutex_);
    tasks_.push_back(std::move(task));
    posted_.notify_one();
  }

private:
  void run(const std::stop_token &stop) {
    std::unique_lock lock(mutex_);
    while (posted_.wait(lock, stop, [this] { return !tasks_.empty(); })) {
      const Task task = std::move(tasks_.front());
      tasks_.pop_front();
      lock.unlock();
      task();
      lock.lock();
    }
  }

  std::mutex mutex_;
  std::condition_variable_any posted_;
  std::deque<Task> tasks_;
  std::vector<std::jthread> threads_; // use all of the above
};

} // namespace delegated_tls
