// The work of the modem's commands, and their records on the wire.
#pragma once

#include "server/modem/control.h"
#include "server/service/command.h"

struct AtRequest {
  char command[32];  // ended by a zero, or full
  int32_t timeout_ms;
};
static_assert(sizeof(AtRequest) == 36);

struct ModemValues {
  uint32_t value[MODEM_VALUES];
};

struct ModemValue {
  uint32_t value;
};

using AtReply = Bytes<32>;  // the response's beginning

int32_t ReadModemValues(const Ignored&, ModemValues& values);
int32_t ReadModemValue(const Ignored&, ModemValue& value);
int32_t ReadModemByte(const Ignored&, ModemValue& value);
int32_t CheckSim(const Ignored&, NoData&);
int32_t ExchangeAt(const AtRequest& request, AtReply& reply);
int32_t ReadModemState(const Ignored&, NoData&);
int32_t SwitchModemLines(const Words<3>& request, NoData&);
int32_t ControlModem(const Words<1>& request, NoData&);
void PassThrough(const Ignored&);
