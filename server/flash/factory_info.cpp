#include "server/flash/factory_info.h"

#include <cstring>

#include "protocol/result_codes.h"
#include "server/base/device.h"
#include "server/flash/partition.h"

constexpr char FACTORY_INFO[] = "Factory Info";
constexpr uint32_t FIRST_FIELD_OFFSET = 0;
constexpr uint32_t SECOND_FIELD_OFFSET = 21;

int32_t ReadFactoryInfo(uint8_t* out) {
  char path[PATH_SIZE];
  if (FindMtdIndex(path, sizeof path, FACTORY_INFO) < 0) return FLASH_ERR;
  return WithDevice(path, O_RDONLY, FLASH_ERR, [&](int partition) {
    return read(partition, out, FACTORY_INFO_SIZE) == FACTORY_INFO_SIZE ? SUCCESS : FLASH_ERR;
  });
}

static int32_t ReadField(uint8_t* out, uint32_t offset) {
  uint8_t record[FACTORY_INFO_SIZE];
  const int32_t result = ReadFactoryInfo(record);
  if (result != SUCCESS) return result;
  memcpy(out, record + offset, FACTORY_FIELD_SIZE);
  return SUCCESS;
}

int32_t ReadFactoryInfoFirstField(uint8_t* out) {
  return ReadField(out, FIRST_FIELD_OFFSET);
}

int32_t ReadFactoryInfoSecondField(uint8_t* out) {
  return ReadField(out, SECOND_FIELD_OFFSET);
}

int32_t WriteFactoryInfo(const uint8_t* in) {
  char path[PATH_SIZE];
  const int32_t number = FindMtdIndex(path, sizeof path, FACTORY_INFO);
  if (number < 0) return FLASH_ERR;
  EraseMtdPartition(number);
  return WithDevice(path, O_WRONLY, FLASH_ERR, [&](int partition) {
    return WriteToFlash(partition, in, FACTORY_INFO_SIZE) ? SUCCESS : FLASH_ERR;
  });
}

int32_t FactoryQueryUnsupported() {
  return NOT_SUPPORTED;
}
