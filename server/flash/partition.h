// The phone's small flash partitions (MTD), known by name only: looking one up in /proc/mtd, erasing it, and
// moving a CRC-checked record. A partition's number is looked up afresh on every access.
#pragma once

#include <cstddef>
#include <cstdint>

constexpr uint32_t PATH_SIZE = 128;
constexpr uint32_t FLASH_RECORD_SIZE = 32768;

// A record begins with the CRC of its body as a little-endian word, so the upper two bytes of the word are 0.
constexpr uint32_t RECORD_BODY_OFFSET = 4;

// Finds the partition whose line in /proc/mtd holds `name`, and formats the path of its block device, through
// which records are moved. Gives its number, or -1 with `path_out` left alone when there is none. The first
// line wins: a name that begins another partition's name relies on the kernel listing its own partition
// first.
int32_t FindMtdIndex(char* path_out, size_t path_size, const char* name);

// Formats the path of a partition's character device.
void FormatCharacterDevicePath(char* path_out, size_t path_size, int32_t number);

// Erases a whole partition with the phone's eraser; gives the shell's status.
int32_t EraseMtdPartition(int32_t number);

// Reads a record of FLASH_RECORD_SIZE bytes. Gives 0, or -1 when the partition is missing, cannot be opened,
// is too short, or the CRC does not match; the buffer holds what was read.
int32_t ReadFlashRecord(uint8_t* buffer, const char* name);

// Erases the partition and writes the record as given: the caller has stamped the CRC. Gives 0, or -1 when
// the partition is missing, cannot be opened or took fewer bytes.
int32_t WriteFlashRecord(const uint8_t* buffer, const char* name);
