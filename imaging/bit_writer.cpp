#include "imaging/bit_writer.h"

#include <cstring>

#include "imaging/stream.h"

namespace {

constexpr size_t LONGEST_WORD = 8;  // four bytes of ones

void WriteBlock(BitWriter* writer) {
  if (!writer->failed && MStreamWrite(writer->stream, writer->block, writer->length) != MIMG_OK) {
    writer->failed = true;
  }
  writer->length = 0;
}

}  // namespace

void StartWriting(BitWriter* writer, MStream* stream) {
  writer->bits = 0;
  writer->room = 32;
  writer->stream = stream;
  writer->failed = false;
  writer->length = 0;
}

void PutBytes(BitWriter* writer, const uint8_t* bytes, size_t size) {
  for (size_t i = 0; i < size; ++i) {
    if (writer->length == WRITE_BLOCK) WriteBlock(writer);
    writer->block[writer->length++] = bytes[i];
  }
}

void PutWord(BitWriter* writer, uint32_t word) {
  if (writer->length > WRITE_BLOCK - LONGEST_WORD) WriteBlock(writer);
  uint8_t* next = writer->block + writer->length;
  // A byte of ones is the only one whose complement, less one, borrows into a top bit that the byte itself
  // has.
  uint32_t complement = ~word;
  if (((complement - 0x01010101U) & word & 0x80808080U) == 0) {
    next[0] = static_cast<uint8_t>(word >> 24);
    next[1] = static_cast<uint8_t>(word >> 16);
    next[2] = static_cast<uint8_t>(word >> 8);
    next[3] = static_cast<uint8_t>(word);
    writer->length += 4;
    return;
  }
  for (int shift = 24; shift >= 0; shift -= 8) {
    uint8_t byte = static_cast<uint8_t>(word >> shift);
    *next++ = byte;
    if (byte == 0xFF) *next++ = 0;
  }
  writer->length = static_cast<size_t>(next - writer->block);
}

void PutLastBits(BitWriter* writer) {
  if (writer->room < 32) {
    int32_t padding = writer->room % 8;
    if (padding > 0) PutBits(writer, (1U << padding) - 1, padding);
  }
  while (writer->room < 32) {
    uint8_t bytes[2] = {static_cast<uint8_t>(writer->bits >> 24), 0};
    PutBytes(writer, bytes, bytes[0] == 0xFF ? 2 : 1);
    writer->bits <<= 8;
    writer->room += 8;
  }
}

int32_t FinishWriting(BitWriter* writer) {
  WriteBlock(writer);
  if (writer->failed) return MIMG_WRITE_FAILED;
  return MStreamFlush(writer->stream);
}
