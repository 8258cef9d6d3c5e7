#include "server/service/channel_commands.h"

#include "server/base/wait.h"

// The host's probe for a running server.
int32_t Ping(const Ignored&, NoData&) {
  return 1;
}

void DoNothing(const Ignored&) {}

// That the port could not be opened again, nobody is left to hear.
void PauseChannel(const Words<1>& request) {
  SetChannelOpen(0);
  SleepSeconds(static_cast<unsigned>(request.word[0]));
  SetChannelOpen(1);
}
