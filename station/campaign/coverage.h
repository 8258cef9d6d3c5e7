// What a campaign found out about a plan: which steps notice which faults, and what goes unnoticed.
#pragma once

#include <string>
#include <vector>

#include "station/campaign/reasons.h"
#include "station/campaign/trial.h"

namespace station {

struct Coverage {
  struct OfFault {
    Trial trial;
    std::string reason;  // why it went unnoticed, if that is known

    bool IsHole() const {
      return !trial.noticed && reason.empty();
    }
  };
  struct OfStep {
    std::string name;
    std::size_t noticed = 0;  // faults
    std::size_t alone = 0;    // that no other step noticed
  };

  std::string plan = {};
  std::string plan_file = {};
  std::string plan_sha256 = {};
  std::vector<OfFault> faults = {};
  std::vector<OfStep> steps = {};
  std::vector<std::string> idle_reasons = {};  // patterns that fit no fault that went unnoticed
  std::size_t untried = 0;                     // faults, after an interruption

  std::size_t Noticed() const;
  std::size_t Explained() const;
  std::size_t Holes() const;
};

// Of the trials, in their order, of a plan whose good run is known.
Coverage MakeCoverage(const PlanResult& good, std::vector<Trial> trials, const Reasons& reasons);

// A table for a terminal, the same for programs, and as a page of its own.
std::string CoverageText(const Coverage& coverage);
std::string CoverageJson(const Coverage& coverage);
std::string CoveragePage(const Coverage& coverage);

}  // namespace station
