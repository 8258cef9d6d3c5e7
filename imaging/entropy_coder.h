// Huffman coding of quantized blocks (ITU-T T.81, F.1.2).
#pragma once

#include "imaging/bit_writer.h"
#include "imaging/quantizer.h"

// Codes as the coder wants them. A codeword is bits << 5 | length; in the tables indexed by coefficients the
// bits are those of the Huffman code and of the coefficient behind it.
struct EntropyCodes {
  uint32_t ofConstantSize[12];
  uint32_t ofRunAndSize[16][11];
  uint32_t ofRunAndCoefficient[16][16];  // for coefficients from -8 to 7; 0 stands for the run's own symbol
};

extern const EntropyCodes LUMA_CODES;
extern const EntropyCodes CHROMA_CODES;

// `difference`: of the block's constant coefficient from that of the component's block before it.
void PutBlock(BitWriter* writer, const QuantizedBlock& block, int32_t difference, const EntropyCodes& codes);

// A block beyond the picture's edge, which no decoder shows: as its predecessor, and plain.
void PutPlainBlock(BitWriter* writer, const EntropyCodes& codes);
