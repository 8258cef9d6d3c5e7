// Faults on demand: calls that a test wants refused, cut short or slow. A rule counts the calls that it fits
// from the moment it is made and applies to the `nth` of them, `times` times in a row.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <cstdint>
#include <limits>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace simulator {

constexpr int ALWAYS = std::numeric_limits<int>::max();

enum class FaultCall { Open, Request, Exec, Sleep, Thread };

struct FaultRule {
  FaultCall call = FaultCall::Open;
  std::string path{};                 // of the device, file or program
  std::optional<uint32_t> request{};  // of Request: this number only
  int nth = 1;                        // the first call that is hit, counted from 1
  int times = 1;                      // how many in a row, or ALWAYS
  int error = 0;                      // errno to answer with; 0: the call goes on
  std::optional<int64_t> size{};      // of Open: the file seems to hold this many bytes;
  bool cuts_power = false;            // of Open: to be written; the phone's power goes at that moment
  std::chrono::milliseconds delay{};  // before the answer; of Sleep: its new length
};

class Faults {
 public:
  void Add(FaultRule rule);
  void Clear();
  // One line for each rule, as `phonesim fault` takes it, with how often it was asked for.
  std::vector<std::string> List() const;
  // The rule at this place of the list, from 1. Throws std::invalid_argument if there is none.
  void Remove(size_t place);

  void FailOpen(const std::string& path, int error, int nth = 1, int times = ALWAYS);
  void FailRequest(const std::string& path, std::optional<uint32_t> request, int error, int nth = 1,
                   int times = ALWAYS);
  void FailExec(const std::string& path, int error);
  // Every open of the file from now on finds only its first bytes.
  void ShortenFile(const std::string& path, int64_t size);
  void LengthenSleeps(std::chrono::milliseconds length);

  // Counts the call and returns the rule that applies to it, if any.
  std::optional<FaultRule> Strike(FaultCall call, const std::string& path, uint32_t request = 0,
                                  bool writes = false);

 private:
  struct Counted {
    FaultRule rule;
    int seen = 0;
  };
  mutable std::mutex mutex_;
  std::vector<Counted> rules_;
};

// A rule from words, as `phonesim fault` takes them:
//   open PATH [error=ENODEV] [nth=N] [times=N|always] [size=BYTES] [delay=MS] [power=cut]
//   request PATH [number=0x40044F29] [error=EIO] [nth=N] [times=N|always] [delay=MS]
//   exec PATH [error=EACCES] ...
//   sleep delay=MS
//   thread error=EAGAIN [nth=N] [times=N|always]          the creation of a thread
// Throws std::invalid_argument with a sentence.
FaultRule ParseFaultRule(const std::vector<std::string>& words);

}  // namespace simulator
