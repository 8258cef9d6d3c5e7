#include "service/shared_commands.h"

#include "flash/bluetooth_info.h"
#include "flash/factory_info.h"
#include "service/command.h"

// The device address, and twelve bytes that are received and not used.
struct BluetoothInfoRequest {
  uint8_t address[BLUETOOTH_ADDRESS_SIZE];
  uint8_t unused[12];
};
static_assert(sizeof(BluetoothInfoRequest) == 18);

static int32_t WriteInfo(const BluetoothInfoRequest& request, NoData&) {
  return WriteBluetoothInfo(request.address);
}

int32_t BluetoothInfoCommand() {
  return Command<BluetoothInfoRequest, NoData, WriteInfo>();
}

static int32_t ReadInfo(const Ignored&, Bytes<FACTORY_INFO_SIZE>& record) {
  return ReadFactoryInfo(record.byte);
}

int32_t FactoryInfoCommand() {
  return Command<Ignored, Bytes<FACTORY_INFO_SIZE>, ReadInfo>();
}
