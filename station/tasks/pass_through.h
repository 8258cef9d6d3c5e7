// The relay between this program's standard streams and the modem's data port, while the phone passes bytes
// through.
#pragma once

#include <chrono>

#include "station/link/link.h"

namespace station {

// Runs until the input ends or, at a terminal and unless `plain`, Ctrl-] is typed; then lets the modem finish
// until it has been quiet for the lingering time, and sends the leave frame. Throws LinkFailure.
void RelayToModem(Link& link, bool plain, std::chrono::milliseconds linger);

}  // namespace station
