// The serial ports of this computer, with the names that the system knows for what is plugged in.
#pragma once

#include <string>
#include <vector>

namespace station {

struct PortDescription {
  std::string path;  // "/dev/ttyACM0"
  bool usb = false;
  std::string name = {};  // manufacturer and product, empty if there is none
  std::string serial_number = {};
  std::string usb_socket = {};     // "1-4.2": socket 2 of the hub in socket 4 of bus 1
  std::string usb_interface = {};  // "1-4.2:1.0"
  std::string slot = {};           // the configuration's name for it, if any
};

// Looks in the kernel's /sys, or in a folder like it.
std::vector<PortDescription> ListPorts(const std::string& sysfs = "/sys");

// A table for a person; empty for no ports.
std::string PortTable(const std::vector<PortDescription>& ports);

// The port to use if none is named: the only USB serial port. If there are several or none, throws
// UsageError, which lists the ports.
std::string OnlyPort(const std::vector<PortDescription>& ports);

}  // namespace station
