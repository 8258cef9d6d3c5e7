// The work of the maintenance commands, and their records on the wire.
#pragma once

#include "server/maintenance/configuration.h"
#include "server/service/command.h"

using VersionText = Bytes<VERSION_LENGTH>;

struct ClockData {
  uint32_t year, month, day, hour, minute, second;
  uint32_t unused[2];
};
static_assert(sizeof(ClockData) == 32);

int32_t ResetToFactory(const Ignored&, NoData&);
int32_t ReadSystemVersion(const Ignored&, VersionText& field);
int32_t ReadConfigVersion(const Ignored&, VersionText& field);
int32_t ReadResourceVersion(const Ignored&, VersionText& field);
int32_t CheckMemoryCard(const Ignored&, NoData&);
int32_t ReadClock(const Ignored&, ClockData& clock);
int32_t SetClock(const Words<8>& request, NoData&);
int32_t ChangeCalibration(const Words<1>& request, NoData&);
void SwitchPhoneOff(const Ignored&);
void StopInterface(const Ignored&);
