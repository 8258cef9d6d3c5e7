// The work of the commands that concern the server and its link alone.
#pragma once

#include "server/service/command.h"

int32_t Ping(const Ignored&, NoData&);
void DoNothing(const Ignored&);

// Closes the host port for a number of seconds.
void PauseChannel(const Words<1>& request);
