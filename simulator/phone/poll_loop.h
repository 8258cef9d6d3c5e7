// The one thread that serves a phone: system calls to answer, serial lines, pipes and timers, all in one
// poll. Nothing that it calls may block.
#pragma once

#include <poll.h>

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include "posix/file_descriptor.h"

namespace simulator {

class PollLoop {
 public:
  using Id = uint64_t;
  using Ready = std::function<void(short events)>;

  // Values and output were written before the calls that wait to be answered: they are taken first, values
  // before output, so that an `echo` that has ended stands in the journal before what its caller does next.
  enum class Turn { Value, Output, Usual };

  PollLoop();
  ~PollLoop();
  PollLoop(const PollLoop&) = delete;
  PollLoop& operator=(const PollLoop&) = delete;

  // From any thread. Before Start and after Stop the work is done at once by the caller itself.
  void Start();
  void Stop();
  void Post(std::function<void()> work);
  void Run(const std::function<void()>& work);  // and waits until it is done

  // From the loop's own thread (or while it does not run).
  Id Watch(int descriptor, short events, Ready ready, Turn turn = Turn::Usual);
  void SetEvents(Id watch, short events);  // 0: leaves it alone until set again
  void Unwatch(Id watch);
  Id After(std::chrono::nanoseconds delay, std::function<void()> work);
  void CancelTimer(Id timer);
  // Serves the sources of this turn and those before it until they hold nothing more.
  void ServeThrough(Turn turn);

 private:
  struct Source {
    Id id;
    int descriptor;
    short events;
    Turn turn;
    std::shared_ptr<Ready> ready;
  };
  struct Timer {
    std::chrono::steady_clock::time_point due;
    std::function<void()> work;
  };

  void Serve();
  void Wake();
  void RunPosted();
  void RunTimers();
  int TimeOut() const;
  bool PollSources(Turn last, int time_out);

  std::mutex mutex_;
  std::vector<std::function<void()>> posted_;
  bool running_ = false;
  bool stopping_ = false;
  posix::FileDescriptor wake_;
  std::thread thread_;
  std::thread::id thread_id_;

  Id last_id_ = 0;
  std::vector<Source> sources_;
  std::map<Id, Timer> timers_;
};

}  // namespace simulator
