// The command tables: every code with the sizes of its request and answer and the work behind it.
#include "server/service/bluetooth_commands.h"
#include "server/service/camera_commands.h"
#include "server/service/channel_commands.h"
#include "server/service/command.h"
#include "server/service/device_commands.h"
#include "server/service/flash_commands.h"
#include "server/service/maintenance_commands.h"
#include "server/service/modem_commands.h"

// Always served.
constexpr CommandEntry BasicCommandTable[] = {
    // code  request, data behind the status, work
    {0x00, Command<Ignored, NoData, Ping>},
    {0x01, SilentCommand<Ignored, DoNothing>},
    {0x02, SilentCommand<Ignored, SwitchPhoneOff>},
    {0x03, Command<Ignored, NoData, ResetToFactory>},
    {0x04, Command<Words<1>, NoData, SetPartitionWord>},
    {0x05, Command<Ignored, FactoryField, ReadFirstField>},
    {0x06, Command<FactoryField, NoData, WriteField>},
    {0x07, Command<Ignored, BluetoothAddress, RunToolFunction2>},
    {0x08, Command<Ignored, FactoryField, ReadSecondField>},
    {0x09, Command<FactoryField, NoData, WriteField>},
    {0x0A, Command<Ignored, VersionText, ReadSystemVersion>},
    {0x0B, Command<Ignored, Identity, ReadIdentity>},
    {0x0C, Command<Identity, NoData, WriteIdentity>},
    {0x0D, SilentCommand<Ignored, StopInterface>},
    {0x0E, Command<BluetoothInfoRequest, NoData, WriteBluetoothAddress>},
    {0x0F, Command<Ignored, VersionText, ReadConfigVersion>},
    {0x10, Command<Ignored, VersionText, ReadResourceVersion>},
    {0x11, Command<Ignored, FactoryInfo, ReadInfo>},
    {0, nullptr},
};
static_assert(IsCommandTable(BasicCommandTable));

// Served unless extended commands are off.
constexpr CommandEntry ExtendedCommandTable[] = {
    // code  request, data behind the status, work
    {0x22, Command<Ignored, Bytes<128>, QueryCamera>},
    {0x23, Command<Ignored, ModemValues, ReadModemValues>},
    {0x24, CameraCommand},  // CameraRequest, NoData
    {0x25, Command<Ignored, NoData, CheckSim>},
    {0x26, Command<Ignored, NoData, CheckMemoryCard>},
    {0x27, Command<Ignored, NoData, PollKeypad>},
    {0x28, Command<Words<4>, NoData, ShowDisplayTest>},
    {0x29, Command<Words<7>, NoData, ControlTone>},
    {0x2A, Command<Words<2>, NoData, SetAudioPath>},
    {0x2B, Command<Words<2>, NoData, SwitchMotor>},
    {0x2C, Command<Words<5>, RadioData, ControlRadio>},
    {0x2D, Command<Words<2>, TouchData, ControlTouchTest>},
    {0x2E, Command<Ignored, ClockData, ReadClock>},
    {0x2F, Command<Words<8>, NoData, SetClock>},
    {0x30, Command<Ignored, ModemValue, ReadModemValue>},
    {0x31, Command<Ignored, FactoryInfo, ReadInfo>},
    {0x32, WriteInfoCommand},  // FactoryInfo, NoData
    {0x33, Command<Ignored, NoData, SaveModemImage>},
    {0x34, Command<Ignored, ModemImageChunk, ReadModemImageChunk>},
    {0x35, Command<Words<3>, NoData, RunToolFunction1>},
    {0x36, Command<Words<3>, Words<1>, RunToolFunction3>},
    {0x37, Command<BluetoothInfoRequest, NoData, WriteBluetoothAddress>},
    {0x38, AnswerFirstCommand<Words<6>, RunIn>},
    {0x39, Command<Words<2>, NoData, SetLedColor>},
    {0x3B, Command<AtRequest, AtReply, ExchangeAt>},
    {0x3A, Command<Words<2>, NoData, SetGsmUartRx>},
    {0x3C, AnswerFirstCommand<Words<1>, PauseChannel>},
    {0x3D, AnswerFirstCommand<Ignored, PassThrough>},
    {0x3E, Command<Ignored, NoData, ReadModemState>},
    {0x3F, Command<Words<3>, NoData, SwitchModemLines>},
    {0x40, Command<Words<3>, NoData, PlayMedia>},
    {0x41, Command<Words<1>, PictureChunk, ReadPictureChunk>},
    {0x42, Command<BlockRequest, BlockResult, RunToolFunction4, LONG_TIMEOUT_MS>},
    {0x43, Command<CodeRequest, CodeResult, RunToolFunction5, LONG_TIMEOUT_MS>},
    {0x44, Command<Words<1>, Words<1>, RunToolFunction6>},
    {0x45, Command<Words<1>, NoData, ChangeCalibration>},
    {0x46, Command<Words<1>, NoData, ControlModem>},
    {0x48, Command<Ignored, ModemValue, ReadModemByte>},
    {0x47, Command<Ignored, NoData, CheckIdentityBlank>},
    {0x49, Command<Words<1>, LongAddress, RunToolFunction7>},
    {0, nullptr},
};
static_assert(IsCommandTable(ExtendedCommandTable));
