// The relay between this program's standard streams and the modem's data port, while the phone passes bytes
// through.
#pragma once

#include <chrono>

#include "station/link/link.h"

namespace station {

// Runs until the input ends or Ctrl-] is typed at a terminal (not if `plain`). Then waits until the modem has
// been quiet for the lingering time, and sends the leave frame. Throws LinkFailure.
void RelayToModem(Link& link, bool plain, std::chrono::milliseconds linger);

}  // namespace station
