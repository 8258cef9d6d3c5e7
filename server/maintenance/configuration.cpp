#include "server/maintenance/configuration.h"

#include <cstdio>

#include "protocol/result_codes.h"
#include "server/base/shell.h"

#define SETUP_FOLDER "/usr/share/config/setup/"
#define CALIBRATION_FILE "/usr/share/app/calibration.dat"

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

// The log begins with three counters of 32 bits. What follows them is kept. A missing log is skipped.
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

// Six coefficients that map raw readings to screen points, and their divisor.
static constexpr int DEFAULT_CALIBRATION[] = {11, 4384, -1079831, 5849, 11, -1407808, 65536};

int32_t WriteCalibration(int32_t write) {
  if (write != 0) {
    FILE* file = fopen(CALIBRATION_FILE, "wt");
    if (file == nullptr) return OPEN_FAILED;
    const int* value = DEFAULT_CALIBRATION;
    fprintf(file, "%d, %d, %d, %d, %d, %d, %d\n", value[0], value[1], value[2], value[3], value[4], value[5],
            value[6]);
    fclose(file);
  } else {
    RunShell("rm -f " CALIBRATION_FILE);
  }
  RunShell("sync");
  return SUCCESS;
}

static void ReadVersion(const char* command, char* out) {
  if (out == nullptr) return;
  FILE* pipe = popen(command, "r");
  if (pipe == nullptr) return;
  static_assert(VERSION_LENGTH == 128);
  [[maybe_unused]] const int fields = fscanf(pipe, "%128s", out);
  pclose(pipe);
}

int32_t ReadVersions(char* system_out, char* config_out, char* resource_out) {
  ReadVersion("cat /etc/version", system_out);
  ReadVersion("cat /usr/share/config/version", config_out);
  ReadVersion("cat /root/resource/version", resource_out);
  return SUCCESS;
}
