// The modem's AT port: one command and its response at a time. The port is opened for the exchange and closed
// again.
#pragma once

#include <cstdint>

constexpr uint32_t AT_RESPONSE_SIZE = 128;

// Opens a modem port to read and write; gives the descriptor, negative on failure.
int32_t OpenModemPort(const char* path);

// Sets the AT port's line: 38400 baud, 8 data bits, RTS/CTS, no modem control, raw; what was queued is
// dropped. Gives the last flush's result, which nobody needs.
int32_t ConfigureModemPort(int32_t port);

// Sends a command as it is (no line end is added) and waits until the response holds "OK" or "ERROR", for
// `timeout_ms` rounded up to whole seconds. Gives 0 when it does, -1 when it does not, when the descriptor is
// below 1, when the command is null or empty, or when it cannot be written; the last three leave the response
// alone, a response is otherwise whatever came, and need not end with a zero. Failures are told on standard
// output.
int32_t SendAtCommand(int32_t port, const char* command, char* response, int32_t response_size,
                      int32_t timeout_ms);

// Asks whether the SIM is ready. Gives 0; -9989 port not opened; -9991 no answer; -9990 no "OK" to the first
// command or an empty answer to the second; -9996 no "OK" to the second. Takes up to 20 seconds.
int32_t CheckModemSim();

// Wakes the modem and sends one command of the host's. `response` takes AT_RESPONSE_SIZE bytes. Gives 0 or
// -9991; when the command is empty or cannot be written, the response is the wake-up's.
int32_t ModemAtExchange(const char* command, char* response, int32_t timeout_ms);
