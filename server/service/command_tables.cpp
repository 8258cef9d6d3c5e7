// Every command and the work that it asks for. Records, time-outs and the way of answering come from the
// protocol's statement of the command.
#include "server/service/command_tables.h"

#include <cstdlib>
#include <cstring>

#include "server/base/little_endian.h"
#include "server/bluetooth/test_tool.h"
#include "server/camera/capture.h"
#include "server/camera/test_pictures.h"
#include "server/devices/audio.h"
#include "server/devices/display.h"
#include "server/devices/gpio_devices.h"
#include "server/devices/keypad.h"
#include "server/devices/media.h"
#include "server/devices/radio.h"
#include "server/devices/run_in.h"
#include "server/devices/tone.h"
#include "server/devices/touchscreen.h"
#include "server/flash/bluetooth_info.h"
#include "server/flash/factory_info.h"
#include "server/flash/gsm_ffs.h"
#include "server/flash/otp.h"
#include "server/flash/partition_info.h"
#include "server/maintenance/clock.h"
#include "server/maintenance/configuration.h"
#include "server/maintenance/memory_card.h"
#include "server/maintenance/shutdown.h"
#include "server/modem/at_port.h"
#include "server/modem/control.h"
#include "server/modem/pass_through.h"

using namespace protocol;

int32_t SendAnswer(const void* answer, uint32_t size) {
  constexpr int32_t SEND_TIMEOUT_MS = 1000;
  const int32_t sent = ChannelSend(answer, size, SEND_TIMEOUT_MS);
  return sent < 0 ? sent : 0;
}

// Reads the first (0), second or third version text. A word of full length leaves no room for its end mark in
// the data, so it is read into a longer buffer.
static int32_t AnswerVersion(uint32_t which, VersionText& data) {
  char text[VERSION_LENGTH + 1] = {};
  char* out[3] = {};
  out[which] = text;
  const int32_t result = ReadVersions(out[0], out[1], out[2]);
  memcpy(data.text, text, sizeof data.text);
  return result;
}

static int32_t ExchangeAt(const AtRequest& request, AtReply& data) {
  char command[sizeof request.command + 1] = {};
  memcpy(command, request.command, sizeof request.command);
  char response[AT_RESPONSE_SIZE] = {};
  const int32_t result = ModemAtExchange(command, response, request.timeout_ms);
  memcpy(data.reply, response, sizeof data.reply);
  return result;
}

// If the port could not be opened again, there is no one to report it to.
static void PauseLink(uint32_t seconds) {
  SetChannelOpen(0);
  SleepSeconds(seconds);
  SetChannelOpen(1);
}

// Sizes above the limits are refused here. A size of 0 goes on to the camera. No buffer has a negative size.
static int32_t AllocateFrame(int32_t width, int32_t height, void** buffer) {
  if (width > MAX_PICTURE_WIDTH || height > MAX_PICTURE_HEIGHT) return OUT_OF_RANGE;
  if (width < 0 || height < 0) return OUT_OF_MEMORY;
  const size_t size = static_cast<size_t>(width) * static_cast<size_t>(height) * 2;
  *buffer = malloc(size > 0 ? size : 1);
  return *buffer != nullptr ? SUCCESS : OUT_OF_MEMORY;
}

// A handler of its own: it lends the frame's buffer to the work and takes it back after the answer.
static int32_t HandleCameraTest() {
  CameraRequest request;
  const int32_t received = ReceiveRequest<TEST_CAMERA>(request);
  if (received < 0) return received;
  void* buffer = nullptr;
  int32_t status = SUCCESS;
  if (NeedsFrameBuffer(request.subcommand)) status = AllocateFrame(request.width, request.height, &buffer);
  if (status == SUCCESS)
    status = CameraTest(request.subcommand, request.width, request.height, request.rotation, buffer);
  const int32_t sent = SendAnswer(&status, sizeof status);
  free(buffer);
  return sent;
}

// Both codes that write the Bluetooth address do the same.
constexpr auto WriteAddress = [](const BluetoothInfoRequest& request) {
  return WriteBluetoothInfo(request.address);
};

// Both codes that read the factory information do the same.
constexpr auto ReadInfo = [](FactoryInfo& data) { return ReadFactoryInfo(data.block); };

constexpr auto RefuseField = [](const FactoryField&) { return FactoryQueryUnsupported(); };

// Always served.
constexpr CommandEntry BasicCommandTable[] = {
    Row<PING>([]() -> int32_t { return 1; }),
    Row<NO_OPERATION>([] {}),
    Row<POWER_OFF>([] { PowerOff(); }),
    Row<FACTORY_RESET>([] { return FactoryReset(); }),
    Row<SET_PARTITION_WORD>([](auto& request) { return SetPartitionInfoWord(request.word); }),
    Row<READ_FIRST_FIELD>([](auto& data) { return ReadFactoryInfoFirstField(data.field); }),
    Row<WRITE_FIRST_FIELD>(RefuseField),
    Row<BT_FUNCTION_2>([](auto& data) { return BtToolFunction2(data.address); }),
    Row<READ_SECOND_FIELD>([](auto& data) { return ReadFactoryInfoSecondField(data.field); }),
    Row<WRITE_SECOND_FIELD>(RefuseField),
    Row<READ_SYSTEM_VERSION>([](auto& data) { return AnswerVersion(0, data); }),
    Row<READ_IDENTITY>([](auto& data) { return ReadOtpIdentity(data.digits); }),
    Row<WRITE_IDENTITY>([](auto& request) { return WriteOtpIdentity(request.digits); }),
    Row<STOP_USER_INTERFACE>([] { StopUserInterface(); }),
    Row<WRITE_BLUETOOTH_ADDRESS>(WriteAddress),
    Row<READ_CONFIG_VERSION>([](auto& data) { return AnswerVersion(1, data); }),
    Row<READ_RESOURCE_VERSION>([](auto& data) { return AnswerVersion(2, data); }),
    Row<READ_FACTORY_INFO>(ReadInfo),
    {0, nullptr},
};
static_assert(HasEachCommand(BasicCommandTable, 0, FIRST_EXTENDED_CODE));

// Served if extended commands are on.
constexpr CommandEntry ExtendedCommandTable[] = {
    Row<QUERY_CAMERA>([](auto&) { return CameraQuery(); }),
    Row<READ_MODEM_VALUES>([](auto& data) { return QueryModemValues(data.value); }),
    {TEST_CAMERA, HandleCameraTest},
    Row<CHECK_SIM>([] { return CheckModemSim(); }),
    Row<TEST_MEMORY_CARD>([] { return TestMemoryCard(); }),
    Row<POLL_KEYPAD>([] { return KeypadPoll(); }),
    Row<SHOW_DISPLAY>(
        [](auto& request) { return DisplayTest(request.fill, request.border, request.backlight); }),
    Row<CONTROL_TONE>([](auto& request) {
      return ToneControl(request.frequency, request.frequency_2, request.frequency_3, request.volume,
                         request.route, request.start);
    }),
    Row<SET_AUDIO_PATH>([](auto& request) { return AudioPathSetup(request.enable, request.path); }),
    Row<SWITCH_MOTOR>([](auto& request) { return MotorSet(request.on); }),
    Row<CONTROL_RADIO>([](auto& request, auto& data) {
      const auto volume = static_cast<uint16_t>(request.volume);
      return FmRadio(request.mode, request.frequency, volume, request.extra, request.extra_flag,
                     &data.frequency, &data.signal);
    }),
    Row<CONTROL_TOUCH_TEST>([](auto& request, auto&) { return TouchCalibControl(request.mode); }),
    Row<READ_CLOCK>([](auto& data) { return GetRtcTime(data.time); }),
    Row<SET_CLOCK>([](auto& request) { return SetRtcTime(request.time); }),
    Row<READ_MODEM_VALUE>([](auto& data) { return QueryModemValue(&data.value); }),
    Row<READ_FACTORY_INFO_EXTENDED>(ReadInfo),
    Row<WRITE_FACTORY_INFO>([](auto& request) { return WriteFactoryInfo(request.block); }),
    Row<SAVE_MODEM_IMAGE>([] { return SaveGsmFfsImage(); }),
    Row<READ_MODEM_IMAGE>([](auto& data) { return ReadGsmFfsChunk(data.bytes); }),
    Row<BT_FUNCTION_1>([](auto& request) { return BtToolFunction1(request.a, request.b, request.c); }),
    Row<BT_FUNCTION_3>(
        [](auto& request, auto& data) { return BtToolFunction3(request.a, request.b, &data.result); }),
    Row<WRITE_BLUETOOTH_ADDRESS_EXTENDED>(WriteAddress),
    Row<RUN_IN>([](auto& request) { RunInCycle(request.seconds); }),
    Row<SET_LED>([](auto& request) { return LedSetColor(request.colour); }),
    Row<EXCHANGE_AT>([](auto& request, auto& data) { return ExchangeAt(request, data); }),
    Row<SET_UART_RX>([](auto& request) { return GsmUartRxSet(request.level); }),
    Row<PAUSE_LINK>([](auto& request) { PauseLink(request.seconds); }),
    Row<PASS_THROUGH>([] { RunModemPassThrough(0); }),
    Row<CHECK_MODEM_STATE>([] { return CheckModemState(); }),
    Row<SET_MODEM_LINES>(
        [](auto& request) { return SetModemLines(request.first, request.second, request.third); }),
    Row<PLAY_MEDIA>([](auto& request) { return MediaPlay(request.clip, request.path, request.argument); }),
    Row<READ_PICTURE>(
        [](auto& request, auto& data) { return ReadTestImageChunk(request.subcommand, data.bytes); }),
    Row<BT_FUNCTION_4>([](auto& request, auto& data) {
      return BtToolFunction4(request.address, LoadLittle32(request.length), request.data, &data.count,
                             data.data);
    }),
    Row<BT_FUNCTION_5>([](auto& request, auto& data) {
      data.end_mark = 0xFF;
      return BtToolFunction5(request.address, request.characters, data.data);
    }),
    Row<BT_FUNCTION_6>([](auto& request, auto& data) { return BtToolFunction6(request.a, &data.result); }),
    Row<WRITE_CALIBRATION>([](auto& request) { return WriteCalibration(request.write); }),
    Row<CONTROL_MODEM>([](auto& request) { return ModemControl(request.value == 0 ? "0" : "1"); }),
    Row<READ_MODEM_LINE>([](auto& data) {
      uint8_t line = 0;
      const int32_t result = QueryModemByte(&line);
      data.line = line;
      return result;
    }),
    Row<CHECK_IDENTITY_BLANK>([] { return CheckOtpBlank(); }),
    Row<BT_FUNCTION_7>([](auto& request, auto& data) { return BtToolFunction7(request.a, data.address); }),
    {0, nullptr},
};
static_assert(HasEachCommand(ExtendedCommandTable, FIRST_EXTENDED_CODE, CODE_LIMIT));
