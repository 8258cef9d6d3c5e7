// The transform and quantization of a pair of blocks.
#pragma once

#include "imaging/block_pair.h"
#include "imaging/quantization_tables.h"

// Transforms the pair's samples, in place, and quantizes them.
void TransformAndQuantize(BlockPair* pair, const QuantizationTable& table);
