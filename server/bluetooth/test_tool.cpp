#include "server/bluetooth/test_tool.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>

// Starts a command line in the shell, with a pipe from its output in `pipe_end`. Returns its process,
// negative on failure. `popen` would not tell when the process has ended.
static pid_t StartTool(const char* command, int* pipe_end) {
  int ends[2];
  if (pipe2(ends, O_CLOEXEC) != 0) return -1;
  const pid_t tool = fork();
  if (tool == 0) {
    dup2(ends[1], STDOUT_FILENO);
    execl("/bin/sh", "sh", "-c", command, nullptr);
    _exit(127);
  }
  close(ends[1]);
  if (tool < 0) close(ends[0]);
  *pipe_end = ends[0];
  return tool;
}

static bool HasEnded(pid_t tool, int wait_flags) {
  pid_t ended;
  do {
    ended = waitpid(tool, nullptr, wait_flags);
  } while (ended < 0 && errno == EINTR);
  return ended != 0;
}

// Reads until the text is full, the pipe ends, or the tool itself has ended: a process that it leaves behind
// may hold the pipe open for long. Returns whether the tool has ended.
static bool ReadOutput(pid_t tool, int pipe_end, char* output) {
  constexpr int LOOK_MS = 20;  // at whether the tool has ended
  bool ended = false;
  for (size_t kept = 0; kept < BT_TEXT_SIZE - 1;) {
    pollfd readable = {pipe_end, POLLIN, 0};
    const int ready = poll(&readable, 1, ended ? 0 : LOOK_MS);
    if (ready < 0 && errno == EINTR) continue;
    if (ready <= 0) {
      if (ended) break;  // all that it printed has been read
      ended = HasEnded(tool, WNOHANG);
      continue;
    }
    const ssize_t piece = read(pipe_end, output + kept, BT_TEXT_SIZE - 1 - kept);
    if (piece < 0 && errno == EINTR) continue;
    if (piece <= 0) break;
    kept += static_cast<size_t>(piece);
  }
  return ended;
}

const char* BtToolRun(const char* command, char* output) {
  int pipe_end;
  const pid_t tool = StartTool(command, &pipe_end);
  if (tool < 0) return nullptr;
  memset(output, 0, BT_TEXT_SIZE);
  const bool ended = ReadOutput(tool, pipe_end, output);
  close(pipe_end);
  if (!ended) HasEnded(tool, 0);
  return strstr(output, "Status=");
}

void HexEncodeUpper(const uint8_t* bytes, uint32_t count, char* text) {
  constexpr char DIGITS[] = "0123456789ABCDEF";
  for (uint32_t i = 0; i < count; ++i) {
    *text++ = DIGITS[bytes[i] >> 4];
    *text++ = DIGITS[bytes[i] & 0xF];
  }
  *text = '\0';
}

void ReadHexBytes(const char* output, const char* key, uint8_t* bytes, uint32_t count) {
  const char* pair = strstr(output, key);
  if (pair == nullptr) return;
  pair += strlen(key);
  const size_t length = strlen(pair);
  for (uint32_t i = 0; i < count; ++i) {
    const size_t offset = 3 * i;
    unsigned value = 0;
    if (offset < length) sscanf(pair + offset, "%02X", &value);
    bytes[i] = static_cast<uint8_t>(value);
  }
}

constexpr char BT_TOOL[] = "/root/bt_cit_test";

// The digits of a device address on the command line.
using AddressText = char[2 * BT_ADDRESS_SIZE + 1];

// As `BtToolRun`, for a formatted command line.
__attribute__((format(printf, 2, 3))) static const char* RunFunction(char* output, const char* format, ...) {
  char command[BT_TEXT_SIZE];
  va_list arguments;
  va_start(arguments, format);
  vsnprintf(command, sizeof command, format, arguments);
  va_end(arguments);
  return BtToolRun(command, output);
}

// Scans "Status=". Without a number after it, the status is 0.
static int32_t ScanStatus(const char* text) {
  int status = 0;
  if (text == nullptr) return BtToolFailure;
  sscanf(text, "Status=%d", &status);
  return status;
}

static int32_t ScanStatusAndNumber(const char* text, int32_t* number) {
  int status = 0, result = 0;
  if (text == nullptr) return BtToolFailure;
  if (sscanf(text, "Status=%d; ResultA=%d", &status, &result) == 2) *number = result;
  return status;
}

static int32_t ScanStatusAndAddress(const char* text, uint8_t* address) {
  int status = 0;
  unsigned pair[BT_ADDRESS_SIZE] = {};
  if (text == nullptr) return BtToolFailure;
  sscanf(text, "Status=%d; ResultA=%02X:%02X:%02X:%02X:%02X:%02X", &status, &pair[0], &pair[1], &pair[2],
         &pair[3], &pair[4], &pair[5]);
  for (uint32_t i = 0; i < BT_ADDRESS_SIZE; ++i) address[i] = static_cast<uint8_t>(pair[i]);
  return status;
}

int32_t BtToolFunction1(int32_t a, int32_t b, int32_t c) {
  char output[BT_TEXT_SIZE];
  return ScanStatus(RunFunction(output, "%s -f1 -a%d -b%d -c%d", BT_TOOL, a, b, c));
}

int32_t BtToolFunction2(uint8_t* address) {
  char output[BT_TEXT_SIZE];
  return ScanStatusAndAddress(RunFunction(output, "%s -f2", BT_TOOL), address);
}

int32_t BtToolFunction3(int32_t a, int32_t b, int32_t* result) {
  char output[BT_TEXT_SIZE];
  return ScanStatusAndNumber(RunFunction(output, "%s -f3 -a%d -b%d", BT_TOOL, a, b), result);
}

int32_t BtToolFunction4(const uint8_t* address, uint32_t length, const uint8_t* data, uint32_t* result_count,
                        uint8_t* result) {
  AddressText address_text;
  char data_text[2 * BT_BLOCK_SIZE + 1];
  length = std::min(length, BT_BLOCK_SIZE);
  HexEncodeUpper(address, BT_ADDRESS_SIZE, address_text);
  HexEncodeUpper(data, length, data_text);
  char output[BT_TEXT_SIZE];
  const char* text = RunFunction(output, "%s -f4 -a%s -b%u -c%s", BT_TOOL, address_text, length, data_text);
  if (text == nullptr) return BtToolFailure;
  int32_t printed_count = 0;
  const int32_t status = ScanStatusAndNumber(text, &printed_count);
  *result_count = std::min(static_cast<uint32_t>(printed_count), BT_BLOCK_SIZE);
  ReadHexBytes(output, "ResultB=", result, *result_count);
  return status;
}

int32_t BtToolFunction5(const uint8_t* address, const uint8_t* characters, uint8_t* result) {
  AddressText address_text;
  char code[BT_CODE_SIZE + 1] = {};
  HexEncodeUpper(address, BT_ADDRESS_SIZE, address_text);
  memcpy(code, characters, BT_CODE_SIZE);
  char output[BT_TEXT_SIZE];
  const char* text = RunFunction(output, "%s -f5 -a%s -b%s", BT_TOOL, address_text, code);
  if (text == nullptr) return BtToolFailure;
  ReadHexBytes(output, "ResultA=", result, BT_CODE_RESULT_SIZE);
  return ScanStatus(text);
}

int32_t BtToolFunction6(int32_t a, int32_t* result) {
  char output[BT_TEXT_SIZE];
  return ScanStatusAndNumber(RunFunction(output, "%s -f6 -a%d", BT_TOOL, a), result);
}

int32_t BtToolFunction7(int32_t a, uint8_t* address) {
  char output[BT_TEXT_SIZE];
  return ScanStatusAndAddress(RunFunction(output, "%s -f7 -a%d", BT_TOOL, a), address);
}
