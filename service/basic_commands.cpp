// The basic commands, codes 0x00 to 0x11: always served.
#include <cstring>

#include "flash/factory_info.h"
#include "flash/otp.h"
#include "flash/partition_info.h"
#include "maintenance/factory_reset.h"
#include "maintenance/power.h"
#include "maintenance/user_interface.h"
#include "maintenance/versions.h"
#include "service/command.h"
#include "service/shared_commands.h"

using Field = Bytes<FACTORY_FIELD_SIZE>;
using Identity = Bytes<IDENTITY_DIGITS>;
using VersionText = Bytes<VERSION_LENGTH>;

// The host's probe for a running server.
static int32_t Ping(const Ignored&, NoData&) {
  return 1;
}

static void DoNothing() {}

static int32_t ResetToFactory(const Ignored&, NoData&) {
  return FactoryReset();
}

static int32_t SetPartitionWord(const Words<1>& request, NoData&) {
  return SetPartitionInfoWord(static_cast<uint32_t>(request.word[0]));
}

static int32_t ReadFirstField(const Ignored&, Field& field) {
  return ReadFactoryInfoFirstField(field.byte);
}

static int32_t ReadSecondField(const Ignored&, Field& field) {
  return ReadFactoryInfoSecondField(field.byte);
}

static int32_t WriteField(const Field&, NoData&) {
  return FactoryQueryUnsupported();
}

// The text field holds a word of full length, which has no room for its end mark there.
static void CopyVersion(const char (&text)[VERSION_LENGTH + 1], VersionText& field) {
  memcpy(field.byte, text, VERSION_LENGTH);
}

static int32_t ReadSystemVersion(const Ignored&, VersionText& field) {
  char text[VERSION_LENGTH + 1] = {};
  const int32_t result = ReadVersions(text, nullptr, nullptr);
  CopyVersion(text, field);
  return result;
}

static int32_t ReadConfigVersion(const Ignored&, VersionText& field) {
  char text[VERSION_LENGTH + 1] = {};
  const int32_t result = ReadVersions(nullptr, text, nullptr);
  CopyVersion(text, field);
  return result;
}

static int32_t ReadResourceVersion(const Ignored&, VersionText& field) {
  char text[VERSION_LENGTH + 1] = {};
  const int32_t result = ReadVersions(nullptr, nullptr, text);
  CopyVersion(text, field);
  return result;
}

static int32_t ReadIdentity(const Ignored&, Identity& identity) {
  return ReadOtpIdentity(identity.byte);
}

static int32_t WriteIdentity(const Identity& identity, NoData&) {
  return WriteOtpIdentity(identity.byte);
}

constexpr CommandEntry BasicCommandTable[] = {
    // code  request, data behind the status, work
    {0x00, Command<Ignored, NoData, Ping>},
    {0x01, SilentCommand<Ignored, DoNothing>},
    {0x02, SilentCommand<Ignored, PowerOff>},
    {0x03, Command<Ignored, NoData, ResetToFactory>},
    {0x04, Command<Words<1>, NoData, SetPartitionWord>},
    {0x05, Command<Ignored, Field, ReadFirstField>},
    {0x06, Command<Field, NoData, WriteField>},
    {0x08, Command<Ignored, Field, ReadSecondField>},
    {0x09, Command<Field, NoData, WriteField>},
    {0x0A, Command<Ignored, VersionText, ReadSystemVersion>},
    {0x0B, Command<Ignored, Identity, ReadIdentity>},
    {0x0C, Command<Identity, NoData, WriteIdentity>},
    {0x0D, SilentCommand<Ignored, StopUserInterface>},
    {0x0E, BluetoothInfoCommand},
    {0x0F, Command<Ignored, VersionText, ReadConfigVersion>},
    {0x10, Command<Ignored, VersionText, ReadResourceVersion>},
    {0x11, FactoryInfoCommand},
    {0, nullptr},
};
static_assert(IsCommandTable(BasicCommandTable));
