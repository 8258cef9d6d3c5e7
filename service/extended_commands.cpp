// The extended commands, codes 0x22 to 0x49: served unless they are switched off at start-up.
#include "base/shell.h"
#include "devices/display.h"
#include "devices/gpio_devices.h"
#include "flash/factory_info.h"
#include "flash/gsm_ffs.h"
#include "flash/otp.h"
#include "maintenance/calibration.h"
#include "maintenance/clock.h"
#include "maintenance/memory_card.h"
#include "service/command.h"
#include "service/shared_commands.h"

static int32_t CheckMemoryCard(const Ignored&, NoData&) {
  return TestMemoryCard();
}

static int32_t ShowDisplayTest(const Words<4>& request, NoData&) {
  return DisplayTest(request.word[0], request.word[1], request.word[2]);
}

static int32_t SwitchMotor(const Words<2>& request, NoData&) {
  return MotorSet(request.word[0]);
}

struct ClockData {
  uint32_t year, month, day, hour, minute, second;
  uint32_t unused[2];
};
static_assert(sizeof(ClockData) == 32);

static int32_t ReadClock(const Ignored&, ClockData& clock) {
  return GetRtcTime(&clock.year, &clock.month, &clock.day, &clock.hour, &clock.minute, &clock.second);
}

static int32_t SetClock(const Words<8>& request, NoData&) {
  const int32_t* word = request.word;
  return SetRtcTime(word[0], word[1], word[2], word[3], word[4], word[5]);
}

static int32_t WriteInfo(const Bytes<FACTORY_INFO_SIZE>& record, NoData&) {
  return WriteFactoryInfo(record.byte);
}

// The host's 128 bytes wait in the tty for a second, and only then does the time for them begin.
static int32_t WriteFactoryInfoCommand() {
  SleepSeconds(1);
  return Command<Bytes<FACTORY_INFO_SIZE>, NoData, WriteInfo>();
}

static int32_t SaveModemImage(const Ignored&, NoData&) {
  return SaveGsmFfsImage();
}

static int32_t ReadModemImageChunk(const Ignored&, Bytes<GSM_FFS_CHUNK_SIZE>& chunk) {
  return ReadGsmFfsChunk(chunk.byte);
}

static int32_t SetLedColor(const Words<2>& request, NoData&) {
  return LedSetColor(request.word[0]);
}

static int32_t SetGsmUartRx(const Words<2>& request, NoData&) {
  return GsmUartRxSet(request.word[0]);
}

static int32_t ChangeCalibration(const Words<1>& request, NoData&) {
  return WriteCalibration(request.word[0]);
}

static int32_t CheckIdentityBlank(const Ignored&, NoData&) {
  return CheckOtpBlank();
}

constexpr CommandEntry ExtendedCommandTable[] = {
    // code  request, data behind the status, work
    {0x26, Command<Ignored, NoData, CheckMemoryCard>},
    {0x28, Command<Words<4>, NoData, ShowDisplayTest>},
    {0x2B, Command<Words<2>, NoData, SwitchMotor>},
    {0x2E, Command<Ignored, ClockData, ReadClock>},
    {0x2F, Command<Words<8>, NoData, SetClock>},
    {0x31, FactoryInfoCommand},
    {0x32, WriteFactoryInfoCommand},
    {0x33, Command<Ignored, NoData, SaveModemImage>},
    {0x34, Command<Ignored, Bytes<GSM_FFS_CHUNK_SIZE>, ReadModemImageChunk>},
    {0x37, BluetoothInfoCommand},
    {0x39, Command<Words<2>, NoData, SetLedColor>},
    {0x3A, Command<Words<2>, NoData, SetGsmUartRx>},
    {0x45, Command<Words<1>, NoData, ChangeCalibration>},
    {0x47, Command<Ignored, NoData, CheckIdentityBlank>},
    {0, nullptr},
};
static_assert(IsCommandTable(ExtendedCommandTable));
