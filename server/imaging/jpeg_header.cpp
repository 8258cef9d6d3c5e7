#include "server/imaging/jpeg_header.h"

#include "server/imaging/huffman_tables.h"
#include "server/imaging/quantization_tables.h"
#include "server/imaging/zigzag.h"

namespace {

constexpr uint8_t LUMA = 0;
constexpr uint8_t CHROMA = 1;

template <size_t size>
void PutSegment(BitWriter* writer, const uint8_t (&bytes)[size]) {
  PutBytes(writer, bytes, size);
}

void PutQuantizationTable(BitWriter* writer, uint8_t id, const QuantizationTable& table) {
  uint8_t segment[5 + 64] = {0xFF, 0xDB, 0, 2 + 1 + 64, id};
  for (int i = 0; i < 64; ++i) segment[5 + ZIGZAG_POSITION[i]] = table.steps[i];
  PutSegment(writer, segment);
}

// `kind`: 0x00 for the table of constant coefficients, 0x10 for that of the varying ones.
void PutHuffmanTable(BitWriter* writer, uint8_t kind, uint8_t id, const HuffmanTable& table) {
  int count = SymbolCount(table);
  const uint8_t start[] = {0xFF, 0xC4, 0, static_cast<uint8_t>(2 + 1 + 16 + count),
                           static_cast<uint8_t>(kind | id)};
  PutSegment(writer, start);
  PutSegment(writer, table.counts);
  PutBytes(writer, table.symbols, static_cast<size_t>(count));
}

void PutFrameHeader(BitWriter* writer, int32_t width, int32_t height) {
  const uint8_t segment[] = {
      0xFF,
      0xC0,
      0,
      17,
      8,  // bits a sample
      static_cast<uint8_t>(height >> 8),
      static_cast<uint8_t>(height),
      static_cast<uint8_t>(width >> 8),
      static_cast<uint8_t>(width),
      3,  // components: id, samples across and down in a macroblock, quantization table
      1,
      0x22,
      LUMA,  // Y
      2,
      0x11,
      CHROMA,  // Cb
      3,
      0x11,
      CHROMA,  // Cr
  };
  PutSegment(writer, segment);
}

}  // namespace

void PutHeader(BitWriter* writer, int32_t width, int32_t height) {
  static const uint8_t start[] = {
      0xFF, 0xD8,                                      // SOI
      0xFF, 0xE0, 0, 16, 'J', 'F', 'I', 'F', 0, 1, 1,  // APP0, version 1.01
      0,    0,    1, 0,  1,                            // square pixels of no stated size
      0,    0,                                         // no thumbnail
  };
  static const uint8_t scan[] = {
      0xFF, 0xDA, 0,   12,
      3,                // components: id, Huffman tables
      1,    0x00,       // Y
      2,    0x11,       // Cb
      3,    0x11,       // Cr
      0,    63,   0x00  // all coefficients at once, in full
  };
  PutSegment(writer, start);
  PutQuantizationTable(writer, LUMA, LUMA_TABLE);
  PutQuantizationTable(writer, CHROMA, CHROMA_TABLE);
  PutFrameHeader(writer, width, height);
  PutHuffmanTable(writer, 0x00, LUMA, LUMA_CONSTANT_TABLE);
  PutHuffmanTable(writer, 0x10, LUMA, LUMA_VARYING_TABLE);
  PutHuffmanTable(writer, 0x00, CHROMA, CHROMA_CONSTANT_TABLE);
  PutHuffmanTable(writer, 0x10, CHROMA, CHROMA_VARYING_TABLE);
  PutSegment(writer, scan);
}

void PutTrailer(BitWriter* writer) {
  static const uint8_t end[] = {0xFF, 0xD9};  // EOI
  PutSegment(writer, end);
}
