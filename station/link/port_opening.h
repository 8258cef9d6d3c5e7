// Opening the two kinds of ports.
#pragma once

#include <string>

#include "posix/file_descriptor.h"

namespace station {

constexpr const char* TCP_PREFIX = "tcp:";

// A serial port: raw, 8 data bits, 115200 baud, held against other programs. Throws LinkFailure.
posix::FileDescriptor OpenSerialPort(const std::string& path);

// "HOST:PORT", where an IPv6 address stands in brackets. Throws LinkFailure.
posix::FileDescriptor OpenTcpPort(const std::string& address);

}  // namespace station
