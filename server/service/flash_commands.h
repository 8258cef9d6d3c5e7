// The work of the commands on the production records in flash, and their records on the wire.
#pragma once

#include "server/flash/bluetooth_info.h"
#include "server/flash/factory_info.h"
#include "server/flash/gsm_ffs.h"
#include "server/flash/otp.h"
#include "server/service/command.h"

using FactoryInfo = Bytes<FACTORY_INFO_SIZE>;
using FactoryField = Bytes<FACTORY_FIELD_SIZE>;
using Identity = Bytes<IDENTITY_DIGITS>;
using ModemImageChunk = Bytes<GSM_FFS_CHUNK_SIZE>;

// The device address, and twelve bytes that are received and not used.
struct BluetoothInfoRequest {
  uint8_t address[BLUETOOTH_ADDRESS_SIZE];
  uint8_t unused[12];
};
static_assert(sizeof(BluetoothInfoRequest) == 18);

int32_t SetPartitionWord(const Words<1>& request, NoData&);
int32_t ReadFirstField(const Ignored&, FactoryField& field);
int32_t ReadSecondField(const Ignored&, FactoryField& field);
int32_t WriteField(const FactoryField&, NoData&);
int32_t ReadInfo(const Ignored&, FactoryInfo& info);
int32_t WriteInfo(const FactoryInfo& info, NoData&);
int32_t ReadIdentity(const Ignored&, Identity& identity);
int32_t WriteIdentity(const Identity& identity, NoData&);
int32_t CheckIdentityBlank(const Ignored&, NoData&);
int32_t WriteBluetoothAddress(const BluetoothInfoRequest& request, NoData&);
int32_t SaveModemImage(const Ignored&, NoData&);
int32_t ReadModemImageChunk(const Ignored&, ModemImageChunk& chunk);

// A handler of its own: the host's 128 bytes wait in the tty for a second, and only then does the time for
// them begin.
int32_t WriteInfoCommand();
