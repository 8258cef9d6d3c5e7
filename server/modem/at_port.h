// The modem's AT port: one command and its response at a time. The port is opened for each exchange and then
// closed.
#pragma once

#include <cstdint>

constexpr uint32_t AT_RESPONSE_SIZE = 128;

// Opens a modem port to read and write. Returns the descriptor, negative on failure.
int32_t OpenModemPort(const char* path);

// Sets the AT port's line: 38400 baud, 8 data bits, RTS/CTS, no modem control, raw. What was queued is
// dropped. Returns the result of the last flush, which callers ignore: an exchange that fails says so itself.
int32_t ConfigureModemPort(int32_t port);

// Sends a command as it is (no line end is added) and waits until the response holds "OK" or "ERROR", at most
// `timeout_ms` rounded up to whole seconds. Returns 0 if it does. Returns -1 if it does not, if the
// descriptor is below 1, if the command is null or empty, or if it cannot be written; in the last three cases
// the response stays as it was. Otherwise the response is what came, which may lack an ending zero. Failures
// are printed on standard output.
int32_t SendAtCommand(int32_t port, const char* command, char* response, int32_t response_size,
                      int32_t timeout_ms);

// Asks whether the SIM is ready. Returns 0; -9989 port not opened; -9991 no answer; -9990 no "OK" to the
// first command or an empty answer to the second; -9996 no "OK" to the second. Takes up to 20 seconds.
int32_t CheckModemSim();

// Wakes the modem and sends one command from the host. `response` takes AT_RESPONSE_SIZE bytes. Returns 0 or
// -9991. If the command is empty or cannot be written, the response is the one to the wake-up.
int32_t ModemAtExchange(const char* command, char* response, int32_t timeout_ms);
