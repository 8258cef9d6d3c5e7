// `phonetest serve`: the line's page, until a signal ends it.
#pragma once

#include "station/tool/command_line.h"

namespace station {

ToolCommand ServeCommand();

}  // namespace station
