#include "simulator/phone/poll_loop.h"

#include <sys/eventfd.h>
#include <unistd.h>

#include <cerrno>
#include <condition_variable>
#include <cstdio>
#include <memory>
#include <system_error>
#include <utility>

namespace simulator {
namespace {

using Clock = std::chrono::steady_clock;

}  // namespace

PollLoop::PollLoop() : wake_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
  if (!wake_.IsOpen()) throw std::system_error(errno, std::generic_category(), "eventfd");
}

PollLoop::~PollLoop() {
  Stop();
}

void PollLoop::Start() {
  const std::lock_guard lock(mutex_);
  running_ = true;
  stopping_ = false;
  thread_ = std::thread([this] { Serve(); });
  thread_id_ = thread_.get_id();
}

void PollLoop::Stop() {
  {
    const std::lock_guard lock(mutex_);
    if (!running_) return;
    stopping_ = true;
  }
  Wake();
  thread_.join();
  const std::lock_guard lock(mutex_);
  running_ = false;
}

void PollLoop::Wake() {
  // Only a full counter refuses, and a full counter wakes the loop too.
  [[maybe_unused]] const int ignored = eventfd_write(wake_.Get(), 1);
}

void PollLoop::Post(std::function<void()> work) {
  {
    const std::lock_guard lock(mutex_);
    if (running_) {
      posted_.push_back(std::move(work));
      work = nullptr;
    }
  }
  if (work) return work();
  Wake();
}

void PollLoop::Run(const std::function<void()>& work) {
  {
    std::unique_lock lock(mutex_);
    if (!running_ || std::this_thread::get_id() == thread_id_) {
      lock.unlock();
      return work();
    }
  }
  std::exception_ptr failure;
  std::mutex done_mutex;
  std::condition_variable done_condition;
  bool done = false;
  Post([&] {
    try {
      work();
    } catch (...) {
      failure = std::current_exception();
    }
    // Under the lock: the waiter destroys the condition as soon as it has the lock.
    const std::lock_guard lock(done_mutex);
    done = true;
    done_condition.notify_one();
  });
  std::unique_lock lock(done_mutex);
  done_condition.wait(lock, [&] { return done; });
  if (failure) std::rethrow_exception(failure);
}

PollLoop::Id PollLoop::Watch(int descriptor, short events, Ready ready, Turn turn) {
  sources_.push_back({++last_id_, descriptor, events, turn, std::make_shared<Ready>(std::move(ready))});
  return last_id_;
}

void PollLoop::SetEvents(Id watch, short events) {
  for (Source& source : sources_) {
    if (source.id == watch) source.events = events;
  }
}

void PollLoop::Unwatch(Id watch) {
  std::erase_if(sources_, [watch](const Source& source) { return source.id == watch; });
}

PollLoop::Id PollLoop::After(std::chrono::nanoseconds delay, std::function<void()> work) {
  timers_.emplace(++last_id_, Timer{Clock::now() + delay, std::move(work)});
  return last_id_;
}

void PollLoop::CancelTimer(Id timer) {
  timers_.erase(timer);
}

void PollLoop::ServeThrough(Turn turn) {
  while (PollSources(turn, 0)) continue;
}

void PollLoop::Serve() {
  while (true) {
    {
      const std::lock_guard lock(mutex_);
      if (stopping_ && posted_.empty()) break;
    }
    PollSources(Turn::Usual, TimeOut());
    RunPosted();
    RunTimers();
  }
}

void PollLoop::RunPosted() {
  std::vector<std::function<void()>> posted;
  {
    const std::lock_guard lock(mutex_);
    posted.swap(posted_);
  }
  for (const auto& work : posted) work();
}

void PollLoop::RunTimers() {
  const Clock::time_point now = Clock::now();
  std::vector<Id> due;
  for (const auto& [id, timer] : timers_) {
    if (timer.due <= now) due.push_back(id);
  }
  for (Id id : due) {
    auto timer = timers_.extract(id);  // one that an earlier timer cancelled is not there any more
    if (!timer.empty()) timer.mapped().work();
  }
}

int PollLoop::TimeOut() const {
  if (timers_.empty()) return -1;
  Clock::time_point next = Clock::time_point::max();
  for (const auto& [id, timer] : timers_) next = std::min(next, timer.due);
  const auto left = std::chrono::ceil<std::chrono::milliseconds>(next - Clock::now());
  return static_cast<int>(std::max<int64_t>(left.count(), 0));
}

// Returns true if a source was ready.
bool PollLoop::PollSources(Turn last, int time_out) {
  std::vector<pollfd> polled;
  std::vector<Id> ids;
  for (const Turn turn : {Turn::Value, Turn::Output, Turn::Usual}) {
    if (turn > last) break;
    for (const Source& source : sources_) {
      if (source.turn != turn || source.events == 0) continue;
      polled.push_back({source.descriptor, source.events, 0});
      ids.push_back(source.id);
    }
  }
  const bool wakes = last == Turn::Usual;
  if (wakes) polled.push_back({wake_.Get(), POLLIN, 0});
  if (polled.empty()) return false;
  const int ready_count = poll(polled.data(), polled.size(), time_out);
  if (ready_count < 0 && errno == EINVAL) {
    // More entries than the process may have descriptors, by a limit that was lowered later. The guardian
    // ends the phone.
    fputs("phonesim: too few descriptors are allowed for the phone's devices\n", stderr);
    _exit(1);
  }
  if (ready_count <= 0) return false;

  if (wakes && polled.back().revents != 0) {
    eventfd_t count;
    [[maybe_unused]] const int ignored = eventfd_read(wake_.Get(), &count);
  }
  bool served = false;
  for (size_t index = 0; index < ids.size(); ++index) {
    if (polled[index].revents == 0) continue;
    // A source that an earlier one took away in this round is not called any more; `ready` lives on while it
    // takes itself away.
    for (const Source& source : sources_) {
      if (source.id != ids[index]) continue;
      const std::shared_ptr<Ready> ready = source.ready;
      (*ready)(polled[index].revents);
      served = true;
      break;
    }
  }
  return served;
}

}  // namespace simulator
