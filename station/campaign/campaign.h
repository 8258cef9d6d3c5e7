// A fault campaign: a plan is run on a good simulated phone, then on one phone for each fault.
#pragma once

#include <string>

#include "station/campaign/trial.h"
#include "station/commands/errors.h"

namespace station {

struct CampaignOrder {
  TrialSetup setup;           // without a time limit, it is taken from the good run
  std::string report_folder;  // for campaign.html, campaign.json and the state; may be empty
  std::string reasons_file;   // empty: the one beside the plan, if there is one
  std::string only;           // pattern of the faults that are tried; empty: all
  unsigned jobs = 1;          // phones at the same time
  bool list = false;          // only show the faults
  bool resume = false;        // go on from the state in the report's folder
  bool json = false;
};

// Passed if every fault was noticed or is explained, DeviceFailure if not, Aborted after an interruption.
// Throws UsageError, PlanError and OutputLost, also if the plan does not pass on the good phone.
ExitStatus RunCampaign(const CampaignOrder& order);

}  // namespace station
