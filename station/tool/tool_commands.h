// Subcommands that are not about one command of the phone: plans, traces, ports and the tool's own
// descriptions.
#pragma once

#include "station/tool/command_line.h"

namespace station {

void AddToolCommands(CLI::App& app, Request& request);

}  // namespace station
