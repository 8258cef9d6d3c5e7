// The baseline sequential JPEG encoder: one pass over the frame, macroblock by macroblock of 16 x 16 pixels,
// in a few kilobytes whatever the picture's size.
#include <cstring>

#include "server/imaging/colour_conversion.h"
#include "server/imaging/entropy_coder.h"
#include "server/imaging/image_encoder.h"
#include "server/imaging/jpeg_header.h"
#include "server/imaging/memory.h"
#include "server/imaging/quantizer.h"

namespace {

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

// Copies a macroblock of which only `columns` x `rows` pixels lie in the picture, and repeats the last ones.
void ReplicateEdges(JpegEncoder* encoder, const uint8_t* pixels, int32_t bytesPerRow, int32_t columns,
                    int32_t rows) {
  for (int32_t row = 0; row < MACROBLOCK; ++row) {
    uint8_t* out = encoder->edge[row];
    if (row >= rows) {
      memcpy(out, encoder->edge[rows - 1], sizeof encoder->edge[row]);
      continue;
    }
    memcpy(out, pixels + row * static_cast<intptr_t>(bytesPerRow),
           static_cast<size_t>(columns * BYTES_PER_PIXEL));
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

// `across` and `down`: how many of the two blocks either way show any of the picture.
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
