// Huffman coding of quantized blocks (ITU-T T.81, F.1.2).
#pragma once

#include "server/imaging/bit_writer.h"
#include "server/imaging/sample_pair.h"

// Codes in the coder's own form. Nearly all coefficients are small. For these the code of the run of zeros
// and the size is already joined with the bits of the value.
struct EntropyCodes {
  uint16_t constantCode[12];  // by size
  uint8_t constantLength[12];
  uint16_t code[256];  // by run and size, as symbols of the Huffman tables
  uint8_t length[256];
  uint32_t smallCode[256];  // by run * 16 + value + 8, for values from -8 to 7; 0 stands for the bare run
  uint8_t smallLength[256];
};

extern const EntropyCodes LUMA_CODES;
extern const EntropyCodes CHROMA_CODES;

// `difference`: the block's constant coefficient minus that of the component's block before it.
void PutBlock(BitWriter* writer, const QuantizedBlock& block, int32_t difference, const EntropyCodes& codes);

// A block beyond the picture's edge, which no decoder shows: plain, with the constant of the block before it.
void PutPlainBlock(BitWriter* writer, const EntropyCodes& codes);
