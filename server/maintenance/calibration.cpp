#include "server/maintenance/calibration.h"

#include <cstdio>

#include "protocol/result_codes.h"
#include "server/base/shell.h"

#define CALIBRATION_FILE "/usr/share/app/calibration.dat"

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
