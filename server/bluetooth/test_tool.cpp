#include "server/bluetooth/test_tool.h"

#include <cstdio>
#include <cstring>

const char* BtToolRun(const char* command, char* output) {
  FILE* tool = popen(command, "r");
  if (tool == nullptr) return nullptr;
  memset(output, 0, BT_TEXT_SIZE);
  [[maybe_unused]] const size_t kept = fread(output, 1, BT_TEXT_SIZE - 1, tool);
  pclose(tool);
  return strstr(output, "Status=");
}

void HexEncodeUpper(const uint8_t* bytes, uint32_t count, char* text) {
  constexpr char DIGITS[] = "0123456789ABCDEF";
  for (uint32_t i = 0; i < count; ++i) {
    *text++ = DIGITS[bytes[i] >> 4];
    *text++ = DIGITS[bytes[i] & 0xF];
  }
  *text = '\0';
}

void ReadHexBytes(const char* output, const char* key, uint8_t* bytes, uint32_t count) {
  const char* pair = strstr(output, key);
  if (pair == nullptr) return;
  pair += strlen(key);
  const size_t length = strlen(pair);
  for (uint32_t i = 0; i < count; ++i) {
    const size_t offset = 3 * i;
    unsigned value = 0;
    if (offset < length) sscanf(pair + offset, "%02X", &value);
    bytes[i] = static_cast<uint8_t>(value);
  }
}
