#include "server/imaging/bit_writer.h"

#include "server/imaging/stream.h"

namespace {

constexpr size_t LONGEST_WORD = 8;  // four bytes of ones

// Out of line: it is called once for a thousand words.
__attribute__((noinline)) void WriteBlock(BitWriter* writer) {
  size_t size = static_cast<size_t>(writer->next - writer->block);
  if (!writer->failed && MStreamWrite(writer->stream, writer->block, size) != MIMG_OK) writer->failed = true;
  writer->next = writer->block;
}

}  // namespace

void StartWriting(BitWriter* writer, MStream* stream) {
  writer->pending = {0, 32};
  writer->stream = stream;
  writer->failed = false;
  writer->next = writer->block;
}

void PutBytes(BitWriter* writer, const uint8_t* bytes, size_t size) {
  for (size_t i = 0; i < size; ++i) {
    if (writer->next == writer->block + WRITE_BLOCK) WriteBlock(writer);
    *writer->next++ = bytes[i];
  }
}

void PutWord(BitWriter* writer, uint32_t word) {
  if (writer->next > writer->block + WRITE_BLOCK - LONGEST_WORD) WriteBlock(writer);
  uint8_t* next = writer->next;
  // Only for a byte of ones is the complement 0, so that subtracting 1 borrows, while its own top bit is set.
  if (((~word - 0x01010101U) & word & 0x80808080U) == 0) {
    next[0] = static_cast<uint8_t>(word >> 24);
    next[1] = static_cast<uint8_t>(word >> 16);
    next[2] = static_cast<uint8_t>(word >> 8);
    next[3] = static_cast<uint8_t>(word);
    writer->next = next + 4;
    return;
  }
  for (int shift = 24; shift >= 0; shift -= 8) {
    uint8_t byte = static_cast<uint8_t>(word >> shift);
    *next++ = byte;
    if (byte == 0xFF) *next++ = 0;
  }
  writer->next = next;
}

void PutLastBits(BitWriter* writer) {
  PendingBits* pending = &writer->pending;
  const int32_t padding = pending->room % 8;
  if (padding > 0) PutBits(writer, pending, (1U << padding) - 1, padding);
  for (; pending->room < 32; pending->room += 8) {
    const uint8_t bytes[2] = {static_cast<uint8_t>(pending->bits >> 24), 0};
    PutBytes(writer, bytes, bytes[0] == 0xFF ? 2 : 1);
    pending->bits <<= 8;
  }
}

int32_t FinishWriting(BitWriter* writer) {
  WriteBlock(writer);
  if (writer->failed) return MIMG_WRITE_FAILED;
  return MStreamFlush(writer->stream);
}
