// What the station is configured to, and where each value comes from.
#pragma once

#include "station/tool/command_line.h"

namespace station {

ExitStatus ShowConfiguration(const Settings& settings, ToolCommand::Given& given);

// What --port takes here: slots, serial ports, and the ports of simulated phones.
std::vector<std::string> PortNames();

ExitStatus ShowPorts(const Settings& settings, ToolCommand::Given& given);

}  // namespace station
