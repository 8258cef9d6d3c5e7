// Records one run while it goes on, in a thread of its own: neither a slow database nor one that is away
// holds up the run. What the database does not take goes to the spool.
#pragma once

#include <memory>
#include <string>

#include "station/results/address.h"
#include "station/results/record.h"

namespace station {

class RunRecorder {
 public:
  // Returns when the start is on the disk, in the database or in the spool, or cannot be kept anywhere; a
  // database that does not answer is given up after a few seconds. Throws nothing of either.
  RunRecorder(const ResultsAddress& address, RunStart start);
  RunRecorder(const RunRecorder&) = delete;
  RunRecorder& operator=(const RunRecorder&) = delete;
  // Without Finish the run stays without an end, and counts as interrupted when this process has ended.
  ~RunRecorder();

  const std::string& RunId() const;

  // Returns at once. A step that comes again replaces the earlier one's verdict and message.
  void Add(StoredStep step);

  // Waits until everything is stored or spooled.
  void Finish(RunEnd end);

  // A sentence about a database that does not take the run: it is spooled, or lost. Empty if all is well.
  std::string Problem() const;

  // A sentence about earlier runs that were spooled and that this one could not hand in. Mostly empty.
  std::string HandInProblem() const;

  // Whether something of this run could be kept nowhere.
  bool IsLost() const;

 private:
  class Work;
  std::shared_ptr<Work> work_;
};

}  // namespace station
