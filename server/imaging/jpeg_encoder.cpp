// The baseline sequential JPEG encoder (ITU-T T.81): one pass over the frame, macroblock by macroblock of 16
// x 16 pixels, in a few kilobytes whatever the picture's size.
#include <cstring>

#include "server/imaging/colour_conversion.h"
#include "server/imaging/entropy_coder.h"
#include "server/imaging/huffman_tables.h"
#include "server/imaging/plug_ins.h"
#include "server/imaging/quantizer.h"

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

// The marker segments before the entropy-coded data (T.81, annex B, and JFIF 1.01).
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

constexpr int32_t MACROBLOCK = 16;
constexpr int32_t BYTES_PER_PIXEL = 2;
constexpr int32_t LARGEST_EXTENT = 65535;  // the frame header's 16 bits

struct JpegEncoder {
  MImgEncoder face;
  MMemContext* memory;
  MStream* stream;
  int32_t previous[3];  // constant coefficients of Y, Cb, Cr
  BlockPair luma;
  BlockPair chroma;
  uint8_t edge[MACROBLOCK][MACROBLOCK * BYTES_PER_PIXEL];
  BitWriter writer;
};

// Copies a macroblock of which only `columns` x `rows` pixels are in the picture, and repeats the last ones.
void ReplicateEdges(JpegEncoder* encoder, const uint8_t* pixels, int32_t bytesPerRow, int32_t columns,
                    int32_t rows) {
  for (int32_t row = 0; row < MACROBLOCK; ++row) {
    uint8_t* out = encoder->edge[row];
    if (row >= rows) {
      memcpy(out, encoder->edge[rows - 1], sizeof encoder->edge[row]);
      continue;
    }
    memcpy(out, pixels + row * static_cast<intptr_t>(bytesPerRow),
           static_cast<size_t>(columns) * BYTES_PER_PIXEL);
    for (int32_t i = columns * BYTES_PER_PIXEL; i < MACROBLOCK * BYTES_PER_PIXEL; ++i)
      out[i] = out[i - BYTES_PER_PIXEL];
  }
}

void EncodeBlock(JpegEncoder* encoder, int component, const QuantizedBlock& block,
                 const EntropyCodes& codes) {
  int32_t constant = block.coefficients[0];
  PutBlock(&encoder->writer, block, constant - encoder->previous[component], codes);
  encoder->previous[component] = constant;
}

// `across` and `down`: how many of the two blocks in each direction show any of the picture.
void EncodeMacroblock(JpegEncoder* encoder, const uint8_t* pixels, int32_t bytesPerRow, int across,
                      int down) {
  BlockPair* luma = &encoder->luma;
  BlockPair* chroma = &encoder->chroma;
  for (int half = 0; half < 2; ++half) {
    ConvertRows(pixels + 8 * half * static_cast<intptr_t>(bytesPerRow), bytesPerRow, luma->samples,
                chroma->samples + 32 * half);
    if (half >= down) {
      PutPlainBlock(&encoder->writer, LUMA_CODES);
      PutPlainBlock(&encoder->writer, LUMA_CODES);
      continue;
    }
    TransformAndQuantize(luma, LUMA_TABLE);
    EncodeBlock(encoder, 0, luma->low, LUMA_CODES);
    if (across == 2) {
      EncodeBlock(encoder, 0, luma->high, LUMA_CODES);
    } else {
      PutPlainBlock(&encoder->writer, LUMA_CODES);
    }
  }

  TransformAndQuantize(chroma, CHROMA_TABLE);
  EncodeBlock(encoder, 1, chroma->low, CHROMA_CODES);
  EncodeBlock(encoder, 2, chroma->high, CHROMA_CODES);
}

int32_t EncodeFrame(MImgEncoder* face, const uint8_t* pixels, int32_t bytesPerRow) {
  JpegEncoder* encoder = reinterpret_cast<JpegEncoder*>(face);
  BitWriter* writer = &encoder->writer;
  StartWriting(writer, encoder->stream);
  PutHeader(writer, face->width, face->height);
  memset(encoder->previous, 0, sizeof encoder->previous);

  for (int32_t y = 0; y < face->height && !writer->failed; y += MACROBLOCK) {
    int32_t rows = face->height - y;
    for (int32_t x = 0; x < face->width; x += MACROBLOCK) {
      int32_t columns = face->width - x;
      const uint8_t* macroblock = pixels + y * static_cast<intptr_t>(bytesPerRow) + x * BYTES_PER_PIXEL;
      if (columns >= MACROBLOCK && rows >= MACROBLOCK) {
        EncodeMacroblock(encoder, macroblock, bytesPerRow, 2, 2);
        continue;
      }
      if (columns > MACROBLOCK) columns = MACROBLOCK;
      int32_t shown = rows < MACROBLOCK ? rows : MACROBLOCK;
      ReplicateEdges(encoder, macroblock, bytesPerRow, columns, shown);
      EncodeMacroblock(encoder, encoder->edge[0], sizeof encoder->edge[0], columns > 8 ? 2 : 1,
                       shown > 8 ? 2 : 1);
    }
  }

  PutLastBits(writer);
  PutTrailer(writer);
  return FinishWriting(writer);
}

void DestroyEncoder(MImgEncoder* face) {
  JpegEncoder* encoder = reinterpret_cast<JpegEncoder*>(face);
  MMemFree(encoder->memory, encoder);
}

}  // namespace

int32_t MJpegEncoder_Create(MMemContext* memory, const void* parameters, void** encoder) {
  const MImgEncoderParameters* wanted = static_cast<const MImgEncoderParameters*>(parameters);
  if (wanted == nullptr || encoder == nullptr || wanted->stream == nullptr) return MIMG_INVALID_PARAMETER;
  if (wanted->width < 1 || wanted->width > LARGEST_EXTENT) return MIMG_INVALID_PARAMETER;
  if (wanted->height < 1 || wanted->height > LARGEST_EXTENT) return MIMG_INVALID_PARAMETER;
  if (wanted->colourFormat != MIMG_COLOUR_RGB565) return MIMG_UNSUPPORTED;

  void* block = MMemAlloc(memory, sizeof(JpegEncoder));
  if (block == nullptr) return MIMG_OUT_OF_MEMORY;
  JpegEncoder* made = static_cast<JpegEncoder*>(block);
  made->face = {EncodeFrame, DestroyEncoder, wanted->width, wanted->height};
  made->memory = memory;
  made->stream = wanted->stream;
  *encoder = made;
  return MIMG_OK;
}
