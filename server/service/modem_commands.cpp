#include "server/service/modem_commands.h"

#include <cstring>

#include "server/modem/at_port.h"
#include "server/modem/control.h"
#include "server/modem/pass_through.h"

int32_t ReadModemValues(const Ignored&, ModemValues& values) {
  return QueryModemValues(values.value);
}

int32_t ReadModemValue(const Ignored&, ModemValue& value) {
  return QueryModemValue(&value.value);
}

int32_t ReadModemByte(const Ignored&, ModemValue& value) {
  uint8_t status = 0;
  const int32_t result = QueryModemByte(&status);
  value.value = status;
  return result;
}

int32_t CheckSim(const Ignored&, NoData&) {
  return CheckModemSim();
}

int32_t ExchangeAt(const AtRequest& request, AtReply& reply) {
  char command[sizeof request.command + 1] = {};
  memcpy(command, request.command, sizeof request.command);
  char response[AT_RESPONSE_SIZE] = {};
  const int32_t result = ModemAtExchange(command, response, request.timeout_ms);
  memcpy(reply.byte, response, sizeof reply.byte);
  return result;
}

int32_t ReadModemState(const Ignored&, NoData&) {
  return CheckModemState();
}

int32_t SwitchModemLines(const Words<3>& request, NoData&) {
  return SetModemLines(request.word[0], request.word[1], request.word[2]);
}

int32_t ControlModem(const Words<1>& request, NoData&) {
  return ModemControl(request.word[0] == 0 ? "0" : "1");
}

void PassThrough(const Ignored&) {
  RunModemPassThrough(0);
}
