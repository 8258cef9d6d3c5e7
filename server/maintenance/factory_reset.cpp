#include "server/maintenance/factory_reset.h"

#include <cstdio>

#include "protocol/result_codes.h"
#include "server/base/shell.h"

#define SETUP_FOLDER "/usr/share/config/setup/"

static void RemoveSound(const char* name) {
  RunShell("rm -f " SETUP_FOLDER "%s", name);
}

static void CopySound(const char* source, const char* target) {
  RunShell("cp -f " SETUP_FOLDER "%s " SETUP_FOLDER "%s", source, target);
}

static int32_t Sync() {
  return RunShell("sync");
}

int32_t SetTouchSound(int32_t mode) {
  RemoveSound("TPSound1.pcm");
  Sync();
  if (mode == TOUCH_SOUND_CLICK) {
    CopySound("Touch_Scr_Click.pcm", "TPSound.pcm");
  } else if (mode == TOUCH_SOUND_TONE) {
    CopySound("Touch_Scr_Tone.pcm", "TPSound.pcm");
  } else {
    RemoveSound("TPSound.pcm");
  }
  return Sync();
}

int32_t SetKeySound(int32_t on) {
  RemoveSound("HardKeySound1.pcm");
  Sync();
  if (on != 0) {
    CopySound("Water.pcm", "HardKeySound.pcm");
  } else {
    RemoveSound("HardKeySound.pcm");
  }
  return Sync();
}

int32_t SetChargerSound(int32_t on) {
  if (on != 0) {
    CopySound("PlugSound.pcm", "ChargerPlugSound.pcm");
  } else {
    RemoveSound("ChargerPlugSound.pcm");
  }
  return Sync();
}

static void RemovePicture(const char* name) {
  RunShell("rm -f /usr/share/usr_data/Photos/%s", name);
  Sync();
}

// Three counters of 32 bits at the start of the log; what follows them is kept. No log, nothing to clear.
static void ClearCallMeter() {
  constexpr uint32_t CLEARED[3] = {};
  FILE* log = fopen("/usr/share/config/calllog/callmeter.log", "r+");
  if (log == nullptr) return;
  fwrite(CLEARED, sizeof CLEARED, 1, log);
  fclose(log);
}

static void RunScript(const char* name) {
  RunShell("chmod a+x " SETUP_FOLDER "%s", name);
  RunShell(SETUP_FOLDER "%s", name);
}

int32_t FactoryReset() {
  RemovePicture("BlemishTest.jpg");
  RemovePicture("FocusTest.jpg");
  SetTouchSound(TOUCH_SOUND_CLICK);
  SetKeySound(1);
  SetChargerSound(1);
  ClearCallMeter();
  RunScript("setup_reset.sh");
  RunScript("setup_clear.sh");
  return SUCCESS;
}
