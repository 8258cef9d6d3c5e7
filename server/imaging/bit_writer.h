// Entropy-coded bits on their way to the stream: a word of bits, and a block of bytes that is written when it
// is full.
#pragma once

#include <cstddef>

#include "server/imaging/imaging.h"

constexpr size_t WRITE_BLOCK = 4096;

// Bits that do not fill a word yet.
struct PendingBits {
  uint32_t bits;  // the first at the top
  int32_t room;   // how many more fit below them
};

struct BitWriter {
  PendingBits pending;
  MStream* stream;
  bool failed;    // after a failed write nothing more is written
  uint8_t* next;  // in the block
  uint8_t block[WRITE_BLOCK];
};

void StartWriting(BitWriter* writer, MStream* stream);

// Appends whole bytes outside the entropy-coded segment: no bits may be pending.
void PutBytes(BitWriter* writer, const uint8_t* bytes, size_t size);

// Appends a word of entropy-coded bits, with a zero byte after each byte of ones (T.81, F.1.2.3).
void PutWord(BitWriter* writer, uint32_t word);

// Fills the last byte up with ones and appends it.
void PutLastBits(BitWriter* writer);

// Writes the rest and waits for the storage. Returns MIMG_OK if everything has arrived there.
int32_t FinishWriting(BitWriter* writer);

// Appends the lowest `length` bits of `code`, 1 to 31; those above must be zero. `pending` is the writer's,
// or a copy that stays in registers meanwhile.
inline void PutBits(BitWriter* writer, PendingBits* pending, uint32_t code, int32_t length) {
  pending->room -= length;
  if (pending->room < 0) {
    PutWord(writer, pending->bits | code >> -pending->room);
    pending->room += 32;
    pending->bits = 0;
  }
  pending->bits |= code << pending->room;
}
