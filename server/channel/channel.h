// The serial command channel: the USB gadget's tty to the host PC, its line settings, and timed transfers of
// an exact size. It is a library below the routine folders, since power-off and the modem relay use the port
// too.
#pragma once

#include <cstdint>

constexpr char HOST_PORT[] = "/dev/usb/tts/0";

// The channel's descriptor; negative while the channel is closed or could not be opened.
extern int32_t ChannelDescriptor;

// What `ChannelReceive` returns instead of the byte count.
constexpr int32_t CHANNEL_READ_FAILED = -11;
constexpr int32_t CHANNEL_TIMED_OUT = -12;  // also short data, and every failure of a wait without end

constexpr int32_t WAIT_FOREVER = -1;

// Opens and configures the host port (`open_it` non-zero) or closes it (0). Returns 0, or -9993 with a
// negative descriptor if the port cannot be opened.
int32_t SetChannelOpen(int32_t open_it);

// Whether a port is closed, or its far end has gone so that it must be opened again. False for a port that is
// merely quiet.
bool IsGone(int32_t port);

// The shortest time from one attempt to open a lost port to the next.
constexpr uint32_t REOPEN_PACE_MS = 1000;

// If the channel is gone, closes and opens it until it is back, once a second. Touches nothing if it is
// alive. A phone that moves from one station to the next needs no restart.
void AwaitChannel();

// Sets a tty to 115200 baud, 8 data bits, no parity, RTS/CTS, raw, drops what has come in, and makes it
// non-blocking. Failures are ignored: a port that cannot be set is used as it is.
void ConfigureHostLine(int tty);

// Reads exactly `count` bytes within `timeout_ms` and joins what comes in pieces. Returns `count`, -11 if a
// read fails, or -12 if the time is over; what came until then is lost. WAIT_FOREVER makes one read of up to
// `count` bytes and returns -12 if it brought fewer: two pieces are not joined, on purpose, so that a code
// cut short by a drawn cable does not take bytes from the next one. A closed channel times out at once
// without end, and after `timeout_ms` otherwise.
int32_t ChannelReceive(void* buffer, uint32_t count, int32_t timeout_ms);

// Writes `count` bytes in one call and returns the result of `write`. The port does not block and the
// time-out is not used: what does not fit into the output queue is not sent. A host that does not read must
// not stop the server.
int32_t ChannelSend(const void* buffer, uint32_t count, int32_t timeout_ms);
