#include "server/modem/pass_through.h"

#include <poll.h>

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

// How long a piece waits for room in the other port's queue before the rest of it is dropped.
constexpr uint32_t ROOM_TIMEOUT_MS = 1000;
// How long the relay waits for either port before it looks at the stop flag again.
constexpr uint32_t ROUND_MS = 1000;

// Data as one read brought it. Empty if the port had nothing or failed.
struct Piece {
  uint8_t bytes[RELAY_BUFFER_SIZE];
  size_t size, sent;
  uint32_t since;  // when its first write was tried
};

static bool IsPending(const Piece& piece) {
  return piece.sent < piece.size;
}

// A port of the relay and what waits for room in it.
struct Port {
  int32_t descriptor;  // negative while the port is gone
  Piece outgoing;
  bool silent;    // was ready and delivered nothing, as a port at hang-up always is
  bool refusing;  // had room and still refused a write
};

struct Relay {
  bool standalone;
  Port host, modem;
  Piece next;             // read from the host while the piece before it waits for room in the modem
  uint32_t last_attempt;  // to open a host port that is gone
};

static void ReadPiece(Port* port, Piece* piece) {
  const ssize_t size = read(port->descriptor, piece->bytes, sizeof piece->bytes);
  piece->size = size > 0 ? static_cast<size_t>(size) : 0;
  piece->sent = 0;
  port->silent = size == 0 || (size < 0 && errno != EINTR);
}

// Writes what is pending, normally a whole piece in one call. The ports do not block: if the queue takes only
// a part, the rest waits for room, a second for the whole piece, and is then dropped. A port that fails is
// not tried again.
static void WritePending(Port* port, bool had_room) {
  Piece* piece = &port->outgoing;
  while (IsPending(*piece)) {
    const ssize_t taken = write(port->descriptor, piece->bytes + piece->sent, piece->size - piece->sent);
    if (taken > 0) piece->sent += static_cast<size_t>(taken);
    if (taken > 0 || (taken < 0 && errno == EINTR)) continue;
    const bool full = taken == 0 || errno == EAGAIN;
    const bool in_time = MonotonicMilliseconds() - piece->since < ROOM_TIMEOUT_MS;
    if (!full || !in_time) piece->size = 0;
    port->refusing = had_room;
    return;
  }
}

static void StartWriting(Port* port) {
  port->outgoing.since = MonotonicMilliseconds();
  WritePending(port, false);
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

// What to wait for at a port. A port that is silent or refuses is left out for a short while: at hang-up it
// would end every wait at once.
static pollfd Watch(const Port& port, bool wants_data, uint32_t* time_left) {
  short events = 0;
  if (wants_data && !port.silent) events = POLLIN;
  if (IsPending(port.outgoing) && !port.refusing) events = static_cast<short>(events | POLLOUT);
  if (port.descriptor >= 0 && (port.silent || port.refusing)) *time_left = RETRY_PAUSE_MS;
  return {events != 0 ? port.descriptor : -1, events, 0};
}

static void LimitWait(const Piece& piece, uint32_t* time_left) {
  if (!IsPending(piece)) return;
  const uint32_t waited = MonotonicMilliseconds() - piece.since;
  const uint32_t left = waited < ROOM_TIMEOUT_MS ? ROOM_TIMEOUT_MS - waited : 0;
  *time_left = std::min(*time_left, left);
}

static int32_t OpenHostPort() {
  const int32_t host = open(HOST_PORT, O_RDWR);
  if (host >= 0) ConfigureHostLine(host);
  return host;
}

// Closes a host port that is gone and opens it again once it is back, trying once a second. Meanwhile the
// modem's data is dropped.
static void RestoreHostPort(Relay* relay) {
  Port* host = &relay->host;
  if (host->descriptor >= 0) {
    if (!host->silent || !IsGone(host->descriptor)) return;
    if (relay->standalone) {
      close(host->descriptor);
    } else {
      SetChannelOpen(0);
    }
    host->descriptor = -1;
    host->outgoing.size = 0;
  }
  if (MonotonicMilliseconds() - relay->last_attempt < REOPEN_PACE_MS) return;
  relay->last_attempt = MonotonicMilliseconds();
  if (!relay->standalone) SetChannelOpen(1);
  host->descriptor = relay->standalone ? OpenHostPort() : ChannelDescriptor;
  host->silent = false;
}

// Reads a piece from the host, which goes on to the modem. While an earlier piece still waits for room, one
// more is read, since it may be the leave frame. Returns true for the leave frame, which goes nowhere.
static bool TakeFromHost(Relay* relay) {
  Piece* piece = IsPending(relay->modem.outgoing) ? &relay->next : &relay->modem.outgoing;
  ReadPiece(&relay->host, piece);
  if (!relay->standalone && IsLeaveFrame(*piece)) {
    piece->size = 0;
    return true;
  }
  if (piece == &relay->modem.outgoing && piece->size > 0) StartWriting(&relay->modem);
  return false;
}

static void TakeFromModem(Relay* relay) {
  ReadPiece(&relay->modem, &relay->host.outgoing);
  if (relay->host.descriptor < 0) relay->host.outgoing.size = 0;
  if (relay->host.outgoing.size > 0) StartWriting(&relay->host);
}

// The piece that was held back follows the one before it.
static void SendNext(Relay* relay) {
  if (IsPending(relay->modem.outgoing) || relay->next.size == 0) return;
  relay->modem.outgoing = relay->next;
  relay->next.size = 0;
  StartWriting(&relay->modem);
}

static bool HasPending(const Relay& relay) {
  return IsPending(relay.host.outgoing) || IsPending(relay.modem.outgoing) || relay.next.size > 0;
}

// After the leave frame or the stop flag nothing more is read, and what is pending is still sent.
static void RelayUntilLeft(Relay* relay) {
  for (bool leaving = false;;) {
    leaving = leaving || (relay->standalone && IsStopRequested());
    if (leaving && !HasPending(*relay)) return;
    RestoreHostPort(relay);
    uint32_t time_left = ROUND_MS;
    pollfd ports[] = {Watch(relay->host, !leaving && relay->next.size == 0, &time_left),
                      Watch(relay->modem, !leaving && !IsPending(relay->host.outgoing), &time_left)};
    LimitWait(relay->host.outgoing, &time_left);
    LimitWait(relay->modem.outgoing, &time_left);
    if (poll(ports, 2, static_cast<int>(time_left)) < 0) ports[0].revents = ports[1].revents = 0;
    relay->host.silent = relay->host.refusing = false;
    relay->modem.silent = relay->modem.refusing = false;

    WritePending(&relay->host, (ports[0].revents & POLLOUT) != 0);
    WritePending(&relay->modem, (ports[1].revents & POLLOUT) != 0);
    SendNext(relay);
    if ((ports[0].events & POLLIN) != 0 && (ports[0].revents & ~POLLOUT) != 0) leaving = TakeFromHost(relay);
    if ((ports[1].events & POLLIN) != 0 && (ports[1].revents & ~POLLOUT) != 0) TakeFromModem(relay);
  }
}

// Takes the host's cable over from the command channel. Returns the host port, negative if it cannot be
// opened.
static int32_t TakeHostPort() {
  if (ChannelDescriptor >= 0) SetChannelOpen(0);
  AudioGpioLineAOff();
  ReloadUsbGadget();
  const int32_t host = OpenHostPort();
  if (host < 0) return host;
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
  relay.modem.descriptor = open(MODEM_DATA_PORT, O_RDWR | O_NONBLOCK);
  if (relay.modem.descriptor < 0) return MODEM_PORT_NOT_OPENED;
  ConfigureHostLine(relay.modem.descriptor);  // the modem's data port has the host port's line settings
  // As a command, the channel is used as it is: another flush would lose what the host sent after the
  // command.
  relay.host.descriptor = relay.standalone ? TakeHostPort() : ChannelDescriptor;
  if (relay.host.descriptor < 0)
    return HOST_PORT_NOT_OPENED;  // leaks the modem port on purpose, see docs/on-purpose.md

  RelayUntilLeft(&relay);

  close(relay.modem.descriptor);
  if (relay.standalone) GiveHostPortUp(relay.host.descriptor);
  return SUCCESS;
}
