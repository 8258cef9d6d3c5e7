#include "server/service/flash_commands.h"

#include "server/base/wait.h"
#include "server/flash/partition_info.h"

int32_t SetPartitionWord(const Words<1>& request, NoData&) {
  return SetPartitionInfoWord(static_cast<uint32_t>(request.word[0]));
}

int32_t ReadFirstField(const Ignored&, FactoryField& field) {
  return ReadFactoryInfoFirstField(field.byte);
}

int32_t ReadSecondField(const Ignored&, FactoryField& field) {
  return ReadFactoryInfoSecondField(field.byte);
}

int32_t WriteField(const FactoryField&, NoData&) {
  return FactoryQueryUnsupported();
}

int32_t ReadInfo(const Ignored&, FactoryInfo& info) {
  return ReadFactoryInfo(info.byte);
}

int32_t WriteInfo(const FactoryInfo& info, NoData&) {
  return WriteFactoryInfo(info.byte);
}

int32_t WriteInfoCommand() {
  SleepSeconds(1);
  return Command<FactoryInfo, NoData, WriteInfo>();
}

int32_t ReadIdentity(const Ignored&, Identity& identity) {
  return ReadOtpIdentity(identity.byte);
}

int32_t WriteIdentity(const Identity& identity, NoData&) {
  return WriteOtpIdentity(identity.byte);
}

int32_t CheckIdentityBlank(const Ignored&, NoData&) {
  return CheckOtpBlank();
}

int32_t WriteBluetoothAddress(const BluetoothInfoRequest& request, NoData&) {
  return WriteBluetoothInfo(request.address);
}

int32_t SaveModemImage(const Ignored&, NoData&) {
  return SaveGsmFfsImage();
}

int32_t ReadModemImageChunk(const Ignored&, ModemImageChunk& chunk) {
  return ReadGsmFfsChunk(chunk.byte);
}
