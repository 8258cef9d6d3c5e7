#include "server/devices/sound_driver.h"

#include "server/base/device.h"

int SetSoundInt(int device, unsigned long request, int32_t value) {
  return DriverRequest(device, request, &value);
}

int SetSoundByte(int device, unsigned long request, uint8_t value) {
  return DriverRequest(device, request, &value);
}

int SetSoundRoute(int device, SoundRoute route) {
  return DriverRequest(device, SOUND_ROUTE, &route);
}

int SetSoundGain(int device, SoundGain gain) {
  return DriverRequest(device, SOUND_GAIN, &gain);
}
