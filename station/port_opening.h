// Opening the two kinds of ports.
#pragma once

#include <string>

#include "station/descriptor.h"

namespace station {

constexpr const char* TCP_PREFIX = "tcp:";

// A serial port: raw, 8 data bits, 115200 baud, held against other programs. Throws LinkFailure.
Descriptor OpenSerialPort(const std::string& path);

// "HOST:PORT", where an IPv6 address stands in brackets. Throws LinkFailure.
Descriptor OpenTcpPort(const std::string& address);

}  // namespace station
