// The phone's small flash partitions (MTD), known only by name: looking one up in /proc/mtd, erasing it, and
// reading and writing a CRC-checked record. A partition's number is looked up on every access.
#pragma once

#include <cstddef>
#include <cstdint>

constexpr uint32_t PATH_SIZE = 128;
constexpr uint32_t FLASH_RECORD_SIZE = 32768;

// A record begins with the CRC of its body as a little-endian word, so the upper two bytes of the word are 0.
constexpr uint32_t RECORD_BODY_OFFSET = 4;

// Finds the partition whose line in /proc/mtd holds `name`, and formats the path of its block device, which
// is used for records. Returns its number. If there is none, returns -1 and leaves `path_out` as it was. The
// first line that matches counts: if a name is the beginning of another partition's name, the kernel must
// list its own partition first, as the phone's kernel does.
int32_t FindMtdIndex(char* path_out, size_t path_size, const char* name);

// Formats the path of a partition's character device.
void FormatCharacterDevicePath(char* path_out, size_t path_size, int32_t number);

// Erases a whole partition with the phone's eraser. Returns the shell's status, which every caller ignores:
// the write that follows shows whether the flash works.
int32_t EraseMtdPartition(int32_t number);

// Writes `size` bytes in one call and makes the driver store them now, since the phone may be switched off
// next. Returns whether all were written; a driver that refuses to flush is ignored.
bool WriteToFlash(int device, const void* bytes, uint32_t size);

// Reads a record of FLASH_RECORD_SIZE bytes. Returns 0, or -1 if the partition is missing, cannot be opened
// or is too short, or if the CRC does not match. The buffer holds what was read in any case.
int32_t ReadFlashRecord(uint8_t* buffer, const char* name);

// Erases the partition and writes the record as given: the caller has stamped the CRC. Returns 0, or -1 if
// the partition is missing, cannot be opened or took fewer bytes.
int32_t WriteFlashRecord(const uint8_t* buffer, const char* name);
