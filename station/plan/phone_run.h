// A plan on one phone: the folder that its steps share, the link to the phone, and the run itself.
#pragma once

#include <map>
#include <string>

#include "station/link/session.h"
#include "station/plan/runner.h"

namespace station {

// A folder for files that one step of a plan leaves for another. It is removed at the end.
class ScratchFolder {
 public:
  // Throws UsageError.
  ScratchFolder();
  ScratchFolder(const ScratchFolder&) = delete;
  ScratchFolder& operator=(const ScratchFolder&) = delete;
  ~ScratchFolder();

  const std::string& Path() const {
    return path_;
  }

 private:
  std::string path_;
};

class PhoneRun {
 public:
  struct Options {
    std::string trace_file = {};  // empty for no trace
    SessionOptions session = {};
  };

  // Reads and checks the plan, with the phone's port and folder in the steps' texts. Throws PlanError and
  // UsageError.
  PhoneRun(const std::string& plan_file, const std::map<std::string, std::string>& variables,
           const std::string& port);

  const std::string& Port() const {
    return port_;
  }
  const Plan& GetPlan() const {
    return plan_;
  }

  // Opens the port and runs the plan; a port that cannot be used is the result's verdict. In the result, the
  // folder's name is the plan's word for it, since the folder is gone when someone reads it.
  PlanResult Run(const Options& options, Operator& person, const RunControl& control) const;

 private:
  std::string port_;
  ScratchFolder scratch_;
  Plan plan_;
};

}  // namespace station
