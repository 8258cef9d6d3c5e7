#include "server/modem/query.h"

#include "protocol/result_codes.h"
#include "server/base/device.h"
#include "server/modem/control_port.h"

constexpr uint32_t READ_VALUES = 17;
constexpr uint32_t VALUES_REPLY = 0x1005;
constexpr uint32_t READ_LINE_STATUS = 67;
constexpr uint32_t LINE_STATUS_REPLY = 0x1043;

struct ModemValuesBlock {
  uint32_t code;
  uint16_t value[MODEM_VALUES];
};
static_assert(sizeof(ModemValuesBlock) == sizeof(ModemControlBlock));

int32_t QueryModemValues(uint32_t* out) {
  ModemValuesBlock block = {READ_VALUES, {}};
  const int32_t result = WithDevice(MODEM_CONTROL_PORT, O_RDWR, OPEN_FAILED, [&](int port) {
    if (DriverRequest(port, READ_VALUES, &block) != 0) return REQUEST_FAILED;
    return block.code == VALUES_REPLY ? SUCCESS : GENERAL_FAILURE;
  });
  if (result != SUCCESS) return result;
  for (uint32_t i = 0; i < MODEM_VALUES; ++i) out[i] = block.value[i];
  return SUCCESS;
}

int32_t QueryModemValue(uint32_t* out) {
  uint32_t values[MODEM_VALUES];
  if (QueryModemValues(values) != SUCCESS) return GENERAL_FAILURE;
  *out = values[1];
  return SUCCESS;
}

int32_t QueryModemByte(uint8_t* out) {
  ModemControlBlock block = {READ_LINE_STATUS, {}};
  return WithDevice(MODEM_CONTROL_PORT, O_RDONLY, OPEN_FAILED, [&](int port) {
    DriverRequest(port, READ_LINE_STATUS, &block);
    if (block.code != LINE_STATUS_REPLY) return GENERAL_FAILURE;
    *out = block.argument[0];
    return SUCCESS;
  });
}
