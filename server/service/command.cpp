#include "server/service/command.h"

constexpr int32_t SEND_TIMEOUT_MS = 1000;

int32_t SendAnswer(const void* answer, uint32_t size) {
  const int32_t sent = ChannelSend(answer, size, SEND_TIMEOUT_MS);
  return sent < 0 ? sent : 0;
}
