#include "server/maintenance/memory_card.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "protocol/result_codes.h"
#include "server/base/shell.h"

constexpr char SERIAL_NUMBER_KEY[] = "psn=";
constexpr size_t SERIAL_NUMBER_DIGITS = 10;
constexpr char TEST_PATTERN[] = "ABCD1234";  // written with its end mark

// Returns 0 if the listed number is not 0.
static int32_t CheckSerialNumber() {
  FILE* devices = fopen("/proc/bus/mmc/device", "r");
  if (devices == nullptr) return OPEN_FAILED;
  char line[256];
  char* number = nullptr;
  while (number == nullptr && fgets(line, sizeof line, devices) != nullptr) {
    number = strstr(line, SERIAL_NUMBER_KEY);
  }
  fclose(devices);
  if (number == nullptr) return CONTENT_MISMATCH;
  number += strlen(SERIAL_NUMBER_KEY);
  number[strnlen(number, SERIAL_NUMBER_DIGITS)] = '\0';
  return strtoull(number, nullptr, 16) != 0 ? SUCCESS : NO_CARD_SERIAL_NUMBER;
}

static int32_t CheckFile() {
  FILE* file = fopen("/mnt/fat/cit_test", "w+");
  if (file == nullptr) return OPEN_FAILED;
  char content[sizeof TEST_PATTERN] = {};
  fwrite(TEST_PATTERN, sizeof TEST_PATTERN, 1, file);
  rewind(file);
  const size_t read = fread(content, 1, sizeof content, file);
  fclose(file);
  RunShell("sync");
  return read == sizeof content && memcmp(content, TEST_PATTERN, sizeof content) == 0 ? SUCCESS
                                                                                      : CONTENT_MISMATCH;
}

int32_t TestMemoryCard() {
  const int32_t result = CheckSerialNumber();
  return result == SUCCESS ? CheckFile() : result;
}
