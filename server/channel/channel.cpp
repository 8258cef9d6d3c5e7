#include "server/channel/channel.h"

#include <fcntl.h>
#include <poll.h>
#include <termios.h>
#include <unistd.h>

#include "protocol/result_codes.h"
#include "server/base/wait.h"

int32_t ChannelDescriptor = -1;

constexpr tcflag_t HOST_LINE = B115200 | CS8 | CREAD | CRTSCTS;
static_assert(HOST_LINE == 0x800010B2, "this libc's line speed is not the driver's bits");

void ConfigureHostLine(int tty) {
  termios line = {};
  tcgetattr(tty, &line);
  line.c_iflag = IGNPAR;
  line.c_oflag = 0;
  line.c_cflag = HOST_LINE;
  line.c_lflag = 0;
  line.c_cc[VTIME] = 0;
  line.c_cc[VMIN] = 0;
  tcflush(tty, TCIFLUSH);
  tcsetattr(tty, TCSANOW, &line);
  fcntl(tty, F_SETFL, O_NONBLOCK);
}

int32_t SetChannelOpen(int32_t open_it) {
  if (open_it == 0) {
    close(ChannelDescriptor);
    ChannelDescriptor = -1;
    return SUCCESS;
  }
  // Close-on-exec: a media player in the background must not hold the host port open.
  ChannelDescriptor = open(HOST_PORT, O_RDWR | O_CLOEXEC);
  if (ChannelDescriptor < 0) return HOST_PORT_NOT_OPENED;
  ConfigureHostLine(ChannelDescriptor);
  return SUCCESS;
}

bool IsGone(int32_t port) {
  pollfd state = {port, 0, 0};
  return port < 0 || (poll(&state, 1, 0) > 0 && (state.revents & (POLLHUP | POLLNVAL)) != 0);
}

void AwaitChannel() {
  static uint32_t last_attempt = 0;
  while (IsGone(ChannelDescriptor)) {
    if (ChannelDescriptor >= 0) SetChannelOpen(0);
    const uint32_t since = MonotonicMilliseconds() - last_attempt;
    if (since < REOPEN_PACE_MS) Pause(REOPEN_PACE_MS - since);
    SetChannelOpen(1);
    last_attempt = MonotonicMilliseconds();
  }
}

// Subtracts a wait that `select` did not count from the time left. The whole time is kept in the
// microseconds, so that they are 0 only when the time is over.
static void LowerTimeLeft(timeval* left, suseconds_t microseconds) {
  left->tv_usec += static_cast<suseconds_t>(left->tv_sec) * 1000000;
  left->tv_sec = 0;
  left->tv_usec = left->tv_usec > microseconds ? left->tv_usec - microseconds : 0;
}

static int32_t ReceiveOnce(void* buffer, uint32_t count) {
  if (ChannelDescriptor < 0 || WaitReadable(ChannelDescriptor, nullptr) <= 0) return CHANNEL_TIMED_OUT;
  const ssize_t received = read(ChannelDescriptor, buffer, count);
  if (received <= 0) PauseBeforeRetry();  // the caller returns at once, even if the cable has gone
  return received == static_cast<ssize_t>(count) ? static_cast<int32_t>(count) : CHANNEL_TIMED_OUT;
}

int32_t ChannelReceive(void* buffer, uint32_t count, int32_t timeout_ms) {
  if (timeout_ms == WAIT_FOREVER) return ReceiveOnce(buffer, count);

  uint32_t received = 0;
  timeval left = {};
  left.tv_usec = static_cast<suseconds_t>(timeout_ms) * 1000;
  // Only the microseconds are tested: `select` returns the rest of 2000 ms as a second and a part of one.
  while (received < count && left.tv_usec != 0) {
    const int ready = WaitReadable(ChannelDescriptor, &left);
    if (ready > 0) {
      const ssize_t piece =
          read(ChannelDescriptor, static_cast<uint8_t*>(buffer) + received, count - received);
      if (piece < 0) return CHANNEL_READ_FAILED;
      received += static_cast<uint32_t>(piece);
      if (piece > 0) continue;
    }
    // A failed wait may leave the time as it was, and a port at hang-up is always readable.
    if (ready != 0) {
      PauseBeforeRetry();
      LowerTimeLeft(&left, RETRY_PAUSE_MS * 1000);
    }
  }
  return received == count ? static_cast<int32_t>(count) : CHANNEL_TIMED_OUT;
}

int32_t ChannelSend(const void* buffer, uint32_t count, int32_t /*timeout_ms*/) {
  return static_cast<int32_t>(write(ChannelDescriptor, buffer, count));
}
