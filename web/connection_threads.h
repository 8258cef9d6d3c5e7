// A thread for each connection, made when one is needed and kept for the next, up to a number. A stream of
// events keeps its thread as long as its viewer stays, so there must be more threads than streams.
#pragma once

#include <condition_variable>
#include <cstddef>
#include <deque>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

namespace web {

class ConnectionThreads {
 public:
  explicit ConnectionThreads(size_t most) : most_(most) {}
  ~ConnectionThreads() {
    Join();
  }
  ConnectionThreads(const ConnectionThreads&) = delete;
  ConnectionThreads& operator=(const ConnectionThreads&) = delete;

  // The work waits if all threads are busy.
  void Enqueue(std::function<void()> work);
  // Waits until all work is done.
  void Join();

 private:
  void Work();

  const size_t most_;
  std::mutex mutex_;
  std::condition_variable changed_;
  std::deque<std::function<void()>> waiting_;
  std::vector<std::thread> threads_;
  size_t idle_ = 0;
  bool ending_ = false;
};

}  // namespace web
