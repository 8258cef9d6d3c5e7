// The subcommand that runs a fault campaign.
#pragma once

#include "station/tool/command_line.h"

namespace station {

ToolCommand CampaignCommand();

}  // namespace station
