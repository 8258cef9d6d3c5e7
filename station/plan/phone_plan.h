// A plan made ready for one phone: the phone's port and a folder for its files stand in the steps' texts.
#pragma once

#include <map>
#include <string>

#include "station/plan/plan.h"
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

struct PhonePlan {
  // Throws PlanError.
  PhonePlan(const std::string& plan_file, const std::map<std::string, std::string>& variables,
            const std::string& phone_port);

  std::string port;
  ScratchFolder scratch;
  Plan plan;
};

// Opens the port and runs the plan; a port that cannot be opened is a result too. `trace` may be null. In the
// result, the scratch folder, which is gone when someone reads it, is called "${scratch}".
PlanResult RunOnPhone(const PhonePlan& phone, Trace* trace, const SessionOptions& options, Operator& person,
                      const StepStarted& started);

}  // namespace station
