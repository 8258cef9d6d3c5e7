// The dispatcher: takes command codes from the channel and runs their handlers.
#pragma once

#include <cstdint>

// Serves commands without end, one at a time. The extended table is searched only if `extended` is non-zero.
// A code that is in no table is not answered, and what follows it within a second is dropped.
[[noreturn]] void CommandLoop(int32_t extended);
