#include "server/service/dispatcher.h"

#include "server/base/little_endian.h"
#include "server/channel/channel.h"
#include "server/service/command_tables.h"

// Runs the handler of `code`. Returns false if the table has none.
static bool RunCommand(const CommandEntry* table, uint32_t code) {
  for (const CommandEntry* entry = table; entry->handler != nullptr; ++entry) {
    if (entry->code != code) continue;
    entry->handler();
    return true;
  }
  return false;
}

static void DrainChannel() {
  uint8_t scratch[512];
  ChannelReceive(scratch, sizeof scratch, 1000);
}

void CommandLoop(int32_t extended) {
  for (;;) {
    uint8_t code_bytes[4];
    if (ChannelReceive(code_bytes, sizeof code_bytes, WAIT_FOREVER) < 0) {
      AwaitChannel();
      continue;
    }
    const uint32_t code = LoadLittle32(code_bytes);
    if (RunCommand(BasicCommandTable, code)) continue;
    if (extended != 0 && RunCommand(ExtendedCommandTable, code)) continue;
    DrainChannel();
  }
}
