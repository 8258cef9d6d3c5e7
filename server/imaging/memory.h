// The memory layer: what the library allocates it takes from a manager's memory context.
#pragma once

#include <cstddef>

#include "server/imaging/imaging.h"

// Null when memory runs out. Not zeroed.
void* MMemAlloc(MMemContext* memory, size_t size);
void MMemFree(MMemContext* memory, void* block);
