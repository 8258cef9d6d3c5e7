#include "server/service/device_commands.h"

#include "server/devices/audio.h"
#include "server/devices/display.h"
#include "server/devices/gpio_devices.h"
#include "server/devices/keypad.h"
#include "server/devices/media.h"
#include "server/devices/radio.h"
#include "server/devices/run_in.h"
#include "server/devices/tone.h"
#include "server/devices/touchscreen.h"

int32_t PollKeypad(const Ignored&, NoData&) {
  return KeypadPoll();
}

int32_t ShowDisplayTest(const Words<4>& request, NoData&) {
  return DisplayTest(request.word[0], request.word[1], request.word[2]);
}

int32_t ControlTone(const Words<7>& request, NoData&) {
  const int32_t* word = request.word;
  return ToneControl(word[0], word[1], word[2], word[4], word[5], word[6]);  // word 3 is not used
}

int32_t SetAudioPath(const Words<2>& request, NoData&) {
  return AudioPathSetup(request.word[0], request.word[1]);
}

int32_t SwitchMotor(const Words<2>& request, NoData&) {
  return MotorSet(request.word[0]);
}

int32_t ControlRadio(const Words<5>& request, RadioData& data) {
  const int32_t* word = request.word;
  return FmRadio(word[0], static_cast<uint32_t>(word[1]), static_cast<uint16_t>(word[2]), word[3], word[4],
                 &data.frequency, &data.signal);
}

int32_t ControlTouchTest(const Words<2>& request, TouchData&) {
  return TouchCalibControl(request.word[0]);
}

int32_t SetLedColor(const Words<2>& request, NoData&) {
  return LedSetColor(request.word[0]);
}

int32_t SetGsmUartRx(const Words<2>& request, NoData&) {
  return GsmUartRxSet(request.word[0]);
}

int32_t PlayMedia(const Words<3>& request, NoData&) {
  return MediaPlay(request.word[0], request.word[1], request.word[2]);
}

void RunIn(const Words<6>& request) {
  RunInCycle(request.word[0]);
}
