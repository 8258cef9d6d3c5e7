// Opening the two kinds of ports.
#pragma once

#include <string>

#include "posix/file_descriptor.h"

namespace station {

constexpr const char* TCP_PREFIX = "tcp:";
constexpr const char* RFC2217_PREFIX = "rfc2217:";

// A serial port: raw, 8 data bits, 115200 baud, locked against other programs. Throws LinkFailure.
posix::FileDescriptor OpenSerialPort(const std::string& path);

// Throws UsageError for a port's name that can be no port's: "tcp:" without HOST:PORT, or a number that TCP
// does not have. It opens nothing.
void CheckPortName(const std::string& port);

// "HOST:PORT", with an IPv6 address in brackets. The prefix is for messages. Throws LinkFailure, and
// UsageError as CheckPortName does.
posix::FileDescriptor OpenTcpPort(const std::string& address, const char* prefix = TCP_PREFIX);

}  // namespace station
