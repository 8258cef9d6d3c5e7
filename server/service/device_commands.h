// The work of the device tests' commands, and their records on the wire.
#pragma once

#include "server/service/command.h"

struct RadioData {
  uint32_t frequency;
  uint32_t signal;
};

// Always zero: the touch test tells everything by its status.
struct TouchData {
  uint32_t unused[2];
};

int32_t PollKeypad(const Ignored&, NoData&);
int32_t ShowDisplayTest(const Words<4>& request, NoData&);
int32_t ControlTone(const Words<7>& request, NoData&);
int32_t SetAudioPath(const Words<2>& request, NoData&);
int32_t SwitchMotor(const Words<2>& request, NoData&);
int32_t ControlRadio(const Words<5>& request, RadioData& data);
int32_t ControlTouchTest(const Words<2>& request, TouchData&);
int32_t SetLedColor(const Words<2>& request, NoData&);
int32_t SetGsmUartRx(const Words<2>& request, NoData&);
int32_t PlayMedia(const Words<3>& request, NoData&);
void RunIn(const Words<6>& request);
