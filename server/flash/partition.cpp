#include "server/flash/partition.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "protocol/result_codes.h"
#include "server/base/device.h"
#include "server/base/little_endian.h"
#include "server/base/shell.h"
#include "server/flash/crc16.h"

constexpr int32_t NO_PARTITION = -1;
constexpr int32_t RECORD_FAILED = -1;

// A line begins with "mtd" and the number. Text that is not a number is read as partition 0.
static int32_t ParsePartitionNumber(const char* line) {
  const long number = strtol(line + strlen("mtd"), nullptr, 10);
  return static_cast<int32_t>(std::clamp<long>(number, INT32_MIN, INT32_MAX));
}

int32_t FindMtdIndex(char* path_out, size_t path_size, const char* name) {
  FILE* partitions = popen("cat /proc/mtd", "r");
  if (partitions == nullptr) return NO_PARTITION;
  int32_t number = NO_PARTITION;
  char line[64];
  while (fgets(line, sizeof line, partitions) != nullptr) {
    if (strstr(line, name) == nullptr) continue;
    number = ParsePartitionNumber(line);
    break;
  }
  pclose(partitions);
  if (number == NO_PARTITION) return NO_PARTITION;
  snprintf(path_out, path_size, "/dev/mtdblock_bbs/%d", static_cast<int>(number));
  return number;
}

void FormatCharacterDevicePath(char* path_out, size_t path_size, int32_t number) {
  snprintf(path_out, path_size, "/dev/mtd/%d", static_cast<int>(number));
}

int32_t EraseMtdPartition(int32_t number) {
  char device[PATH_SIZE];
  FormatCharacterDevicePath(device, sizeof device, number);
  return RunShell("/home/utils/eraseall -q %s", device);
}

bool WriteToFlash(int device, const void* bytes, uint32_t size) {
  const bool whole = write(device, bytes, size) == static_cast<ssize_t>(size);
  fsync(device);
  return whole;
}

int32_t ReadFlashRecord(uint8_t* buffer, const char* name) {
  char path[PATH_SIZE];
  if (FindMtdIndex(path, sizeof path, name) < 0) return RECORD_FAILED;
  return WithDevice(path, O_RDONLY, RECORD_FAILED, [&](int partition) {
    if (read(partition, buffer, FLASH_RECORD_SIZE) != FLASH_RECORD_SIZE) return RECORD_FAILED;
    const uint32_t crc = Crc16(buffer + RECORD_BODY_OFFSET, FLASH_RECORD_SIZE - RECORD_BODY_OFFSET);
    return LoadLittle32(buffer) == crc ? SUCCESS : RECORD_FAILED;
  });
}

int32_t WriteFlashRecord(const uint8_t* buffer, const char* name) {
  char path[PATH_SIZE];
  const int32_t number = FindMtdIndex(path, sizeof path, name);
  if (number < 0) return RECORD_FAILED;
  EraseMtdPartition(number);
  return WithDevice(path, O_WRONLY, RECORD_FAILED, [&](int partition) {
    return WriteToFlash(partition, buffer, FLASH_RECORD_SIZE) ? SUCCESS : RECORD_FAILED;
  });
}
