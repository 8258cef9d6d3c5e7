// The basic commands, codes 0x00 to 0x11: always served.
#include "service/command.h"

static int32_t Ping(const Ignored&, NoData&) {
  return 1;
}

static void DoNothing() {}

constexpr CommandEntry BasicCommandTable[] = {
    // code  request, data behind the status, work
    {0x00, Command<Ignored, NoData, Ping>},
    {0x01, SilentCommand<Ignored, DoNothing>},
    {0, nullptr},
};
static_assert(IsCommandTable(BasicCommandTable));
