// Which other programs have a port open.
#pragma once

#include <string>

namespace station {

// "minicom (process 1234)" for the first other process that has the opened port's device open too; empty when
// none is seen. An ordinary user sees only the user's own processes. The process that plays the other side of
// a pseudo-terminal is no holder.
std::string PortHolder(int port);

}  // namespace station
