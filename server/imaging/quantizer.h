// The transform and quantization of a pair of blocks.
#pragma once

#include "server/imaging/block_pair.h"
#include "server/imaging/quantization_tables.h"

// Transforms the pair's samples, in place, and quantizes them.
void TransformAndQuantize(BlockPair* pair, const QuantizationTable& table);
