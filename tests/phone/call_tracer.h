// Stops the server and every program that it starts at each of their system calls, so that a test can cut a
// transfer short, refuse a call, or draw the phone's battery at exactly that point. These are real calls of
// the real programs: the files hold what a call has done, and nothing of what it has not done.
#pragma once

#include <sys/types.h>

#include <array>
#include <atomic>
#include <cstdint>
#include <functional>
#include <future>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

// A call that has not been carried out yet.
struct TracedCall {
  pid_t thread;
  bool narrow;  // of a 32-bit program
  uint64_t number;
  std::array<uint64_t, 6> arguments;

  bool IsRead() const;   // read(descriptor, buffer, size)
  bool IsWrite() const;  // write(descriptor, buffer, size)
  bool IsClose() const;
  bool IsSync() const;  // fsync(descriptor)
  bool IsAccess() const;
  uint64_t Size() const {
    return arguments[2];
  }
  // The file of the descriptor that is the first argument; empty if that is none.
  std::string DescriptorPath() const;
  // Of a write: its bytes, and where in the file they go.
  std::string WrittenBytes() const;
  // What stands in the caller's memory; shorter where that ends.
  std::string Memory(uint64_t address, size_t size) const;
  uint64_t FilePosition() const;
  // The text that an argument points to, if it begins with a slash; otherwise empty.
  std::string PathArgument(size_t index) const;
};

struct CallFate {
  enum class Kind { GoesOn, Shortened, Refused, PowerCut } kind = Kind::GoesOn;
  uint64_t size = 0;  // of Shortened: what is left of the transfer; of PowerCut: what a write still does
  int error = 0;      // of Refused
};

class CallTracer {
 public:
  using Decide = std::function<CallFate(const TracedCall&)>;

  // Returns when the process is being traced. `decide` is called on the tracer's own thread, one call at a
  // time, while the process that made the call is stopped.
  CallTracer(pid_t process, Decide decide);
  ~CallTracer();  // lets the processes run on
  CallTracer(const CallTracer&) = delete;
  CallTracer& operator=(const CallTracer&) = delete;

  bool PowerWasCut() const {
    return power_cut_;
  }

 private:
  struct Tracee;

  void Trace(pid_t process, std::promise<bool>& started);
  void Changed(pid_t thread, int status);
  void AtCall(Tracee& tracee);
  void Begin(const Tracee& tracee);
  void Finish(const Tracee& tracee);
  void CutPower();

  Decide decide_;
  std::vector<Tracee> tracees_;
  std::atomic<bool> power_cut_ = false;
  std::atomic<bool> ending_ = false;
  std::atomic<bool> ended_ = false;
  std::thread thread_;
};

// What the server does to the line settings of its terminals, call by call: the phone does not see these
// requests, since they go to the PC's own terminals.
class TerminalCalls {
 public:
  // From now on, as long as this object lives.
  explicit TerminalCalls(pid_t server);

  // Of the terminal of this path: "set" (TCSETS, at once), "flush N" and "flags N" with their arguments.
  std::vector<std::string> Of(const std::string& terminal) const;

 private:
  struct Entry {
    std::string terminal;
    std::string text;
  };

  CallFate Note(const TracedCall& call);

  mutable std::mutex mutex_;
  std::vector<Entry> entries_;
  CallTracer tracer_;
};
