#include "server/modem/pass_through.h"

#include <poll.h>
#include <sys/select.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "protocol/result_codes.h"
#include "protocol/selectors.h"
#include "server/base/device.h"
#include "server/base/shell.h"
#include "server/base/wait.h"
#include "server/channel/channel.h"
#include "server/channel/usb_gadget.h"
#include "server/devices/audio.h"
#include "server/devices/gpio_devices.h"

constexpr char MODEM_DATA_PORT[] = "/dev/csmi_tty/7";
constexpr unsigned long GPIO_READ_STOP_FLAG = 0x80044F3F;

constexpr size_t RELAY_BUFFER_SIZE = 4095;

// How long data waits for room in the other port's queue before it is dropped.
constexpr int ROOM_TIMEOUT_MS = 1000;

struct Relay {
  int32_t modem;
  int32_t host;
  bool standalone;
};

// A piece of data as it came from a port. Empty if the port had nothing or failed.
struct Piece {
  uint8_t bytes[RELAY_BUFFER_SIZE];
  size_t size;
};

static void ReadPiece(int32_t port, Piece* piece) {
  const ssize_t size = read(port, piece->bytes, sizeof piece->bytes);
  piece->size = size > 0 ? static_cast<size_t>(size) : 0;
}

// Writes a piece, normally in one call. The ports do not block: if the queue takes only a part, the rest
// waits for room and is dropped if none comes. A port that fails is not tried again: a port at hang-up always
// reports room.
static void WritePiece(int32_t port, const Piece& piece) {
  size_t sent = 0;
  for (;;) {
    const ssize_t taken = write(port, piece.bytes + sent, piece.size - sent);
    if (taken > 0) sent += static_cast<size_t>(taken);
    if (sent == piece.size) return;
    if (taken < 0 && errno != EAGAIN && errno != EINTR) return;
    pollfd room = {port, POLLOUT, 0};
    if (poll(&room, 1, ROOM_TIMEOUT_MS) <= 0 || (room.revents & POLLOUT) == 0) return;
  }
}

static bool IsLeaveFrame(const Piece& piece) {
  return piece.size == sizeof LEAVE_FRAME && memcmp(piece.bytes, LEAVE_FRAME, sizeof LEAVE_FRAME) == 0;
}

// A missing driver counts as one that has not asked to stop.
static bool IsStopRequested() {
  return WithDevice(GPIO_DEVICE, O_RDWR, 0, [](int gpio) {
           int32_t flag = 0;
           IssueRequest(gpio, GPIO_READ_STOP_FLAG, &flag);
           return flag;
         }) != 0;
}

// Waits a second for either port and puts those that are ready into `readable`. A port that was ready without
// delivering anything, as a port at hang-up always is, is left out for a short while, so that the other port
// does not wait.
static void WaitForPorts(const Relay& relay, bool skip_host, bool skip_modem, fd_set* readable) {
  FD_ZERO(readable);
  if (!skip_host) FD_SET(relay.host, readable);
  if (!skip_modem) FD_SET(relay.modem, readable);
  timeval left = {1, 0};
  if (skip_host || skip_modem) left = {0, RETRY_PAUSE_MS * 1000};
  if (select(std::max(relay.host, relay.modem) + 1, readable, nullptr, nullptr, &left) <= 0)
    FD_ZERO(readable);
}

static void RelayUntilLeft(const Relay& relay) {
  Piece piece;
  bool skip_host = false;
  bool skip_modem = false;
  for (;;) {
    if (relay.standalone && IsStopRequested()) return;
    fd_set readable;
    WaitForPorts(relay, skip_host, skip_modem, &readable);
    skip_host = false;
    skip_modem = false;
    if (FD_ISSET(relay.host, &readable)) {
      ReadPiece(relay.host, &piece);
      if (!relay.standalone && IsLeaveFrame(piece)) return;
      if (piece.size > 0) WritePiece(relay.modem, piece);
      skip_host = piece.size == 0;
    }
    if (FD_ISSET(relay.modem, &readable)) {
      ReadPiece(relay.modem, &piece);
      if (piece.size > 0) WritePiece(relay.host, piece);
      skip_modem = piece.size == 0;
    }
  }
}

// Takes the host's cable over from the command channel. Returns the host port, negative if it cannot be
// opened.
static int32_t TakeHostPort() {
  if (ChannelDescriptor >= 0) SetChannelOpen(0);
  AudioGpioLineAOff();
  ReloadUsbGadget();
  const int32_t host = open(HOST_PORT, O_RDWR);
  if (host < 0) return host;
  ConfigureHostLine(host);
  StandbyHold = ProhibitStandby();
  return host;
}

// Unloads the gadget. The buzz tells the operator that the phone has left the mode.
static void GiveHostPortUp(int32_t host) {
  close(host);
  RunShell("rmmod omap_bi");
  RunShell("rmmod serial_fd");
  RunShell("rmmod usbdcore");
  MotorSet(1);
  SleepSeconds(1);
  MotorSet(0);
  AllowStandby(StandbyHold);
}

int32_t RunModemPassThrough(int32_t standalone) {
  Relay relay = {};
  relay.standalone = standalone != 0;
  relay.modem = open(MODEM_DATA_PORT, O_RDWR | O_NONBLOCK);
  if (relay.modem < 0) return MODEM_PORT_NOT_OPENED;
  ConfigureHostLine(relay.modem);  // the modem's data port has the host port's line settings
  // As a command, the channel is used as it is: another flush would lose what the host sent after the
  // command.
  relay.host = relay.standalone ? TakeHostPort() : ChannelDescriptor;
  if (relay.host < 0) return HOST_PORT_NOT_OPENED;  // leaks the modem port on purpose, see docs/on-purpose.md

  RelayUntilLeft(relay);

  close(relay.modem);
  if (relay.standalone) GiveHostPortUp(relay.host);
  return SUCCESS;
}
