#include "server/service/maintenance_commands.h"

#include <cstring>

#include "server/maintenance/clock.h"
#include "server/maintenance/configuration.h"
#include "server/maintenance/memory_card.h"
#include "server/maintenance/shutdown.h"

int32_t ResetToFactory(const Ignored&, NoData&) {
  return FactoryReset();
}

// A word of full length has no room for its end mark in the text field, so it is read into a longer buffer.
struct VersionBuffer {
  char text[VERSION_LENGTH + 1];
};

static void CopyVersion(const VersionBuffer& version, VersionText& field) {
  memcpy(field.byte, version.text, sizeof field.byte);
}

int32_t ReadSystemVersion(const Ignored&, VersionText& field) {
  VersionBuffer version = {};
  const int32_t result = ReadVersions(version.text, nullptr, nullptr);
  CopyVersion(version, field);
  return result;
}

int32_t ReadConfigVersion(const Ignored&, VersionText& field) {
  VersionBuffer version = {};
  const int32_t result = ReadVersions(nullptr, version.text, nullptr);
  CopyVersion(version, field);
  return result;
}

int32_t ReadResourceVersion(const Ignored&, VersionText& field) {
  VersionBuffer version = {};
  const int32_t result = ReadVersions(nullptr, nullptr, version.text);
  CopyVersion(version, field);
  return result;
}

int32_t CheckMemoryCard(const Ignored&, NoData&) {
  return TestMemoryCard();
}

int32_t ReadClock(const Ignored&, ClockData& clock) {
  return GetRtcTime(&clock.year, &clock.month, &clock.day, &clock.hour, &clock.minute, &clock.second);
}

int32_t SetClock(const Words<8>& request, NoData&) {
  const int32_t* word = request.word;
  return SetRtcTime(word[0], word[1], word[2], word[3], word[4], word[5]);
}

int32_t ChangeCalibration(const Words<1>& request, NoData&) {
  return WriteCalibration(request.word[0]);
}

void SwitchPhoneOff(const Ignored&) {
  PowerOff();
}

void StopInterface(const Ignored&) {
  StopUserInterface();
}
