// The dispatcher: takes command codes from the channel and runs their handlers.
#pragma once

#include <cstdint>

// Serves commands for ever, one at a time. The extended table is consulted only when `extended` is non-zero.
// A code that stands in no table is answered with nothing, and what follows it within a second is thrown
// away.
[[noreturn]] void CommandLoop(int32_t extended);
