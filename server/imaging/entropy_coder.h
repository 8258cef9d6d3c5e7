// Huffman coding of quantized blocks (ITU-T T.81, F.1.2).
#pragma once

#include "server/imaging/bit_writer.h"
#include "server/imaging/block_pair.h"

// Codes as the coder wants them. Small coefficients, which nearly all are, have the bits of their value
// joined to the code of their run of zeros and size.
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

// `difference`: of the block's constant coefficient from that of the component's block before it.
void PutBlock(BitWriter* writer, const QuantizedBlock& block, int32_t difference, const EntropyCodes& codes);

// A block beyond the picture's edge, which no decoder shows: as its predecessor, and plain.
void PutPlainBlock(BitWriter* writer, const EntropyCodes& codes);
