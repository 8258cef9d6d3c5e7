#include "server/maintenance/versions.h"

#include <cstdio>

#include "protocol/result_codes.h"

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
