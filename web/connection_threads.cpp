#include "web/connection_threads.h"

#include <utility>

namespace web {

void ConnectionThreads::Enqueue(std::function<void()> work) {
  const std::lock_guard lock(mutex_);
  waiting_.push_back(std::move(work));
  if (waiting_.size() > idle_ && threads_.size() < most_) threads_.emplace_back([this] { Work(); });
  changed_.notify_one();
}

void ConnectionThreads::Join() {
  {
    const std::lock_guard lock(mutex_);
    ending_ = true;
  }
  changed_.notify_all();
  for (std::thread& thread : threads_) thread.join();
  threads_.clear();
}

void ConnectionThreads::Work() {
  std::unique_lock lock(mutex_);
  while (true) {
    ++idle_;
    changed_.wait(lock, [this] { return ending_ || !waiting_.empty(); });
    --idle_;
    if (waiting_.empty()) return;
    const std::function<void()> work = std::move(waiting_.front());
    waiting_.pop_front();
    lock.unlock();
    work();
    lock.lock();
  }
}

}  // namespace web
