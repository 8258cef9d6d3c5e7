#include "station/link/port_list.h"

#include <fmt/format.h>

#include <algorithm>
#include <filesystem>
#include <fstream>

#include "station/commands/errors.h"

namespace station {

namespace {

namespace fs = std::filesystem;

// The first line of a small file; empty if there is none.
std::string FirstLine(const fs::path& path) {
  std::ifstream file(path);
  std::string line;
  std::getline(file, line);
  return line;
}

// The folder of the port's USB interface: the first one above the port's folder that stands in one with a
// vendor number, which is the USB device's.
fs::path UsbInterface(fs::path device) {
  std::error_code error;
  for (device = fs::canonical(device, error); !error && device.has_relative_path();
       device = device.parent_path()) {
    if (fs::exists(device.parent_path() / "idVendor")) return device;
  }
  return {};
}

void DescribeUsb(PortDescription& port, const fs::path& interface) {
  const fs::path device = interface.parent_path();
  const std::string maker = FirstLine(device / "manufacturer");
  const std::string product = FirstLine(device / "product");
  port.name = maker + (maker.empty() || product.empty() ? "" : " ") + product;
  port.serial_number = FirstLine(device / "serial");
  port.usb_socket = device.filename();
  port.usb_interface = interface.filename();
}

bool IsFitted(const fs::path& port) {
  // The kernel lists all on-board ports that a PC may have. Those that this PC does not have are of type 0.
  const std::string type = FirstLine(port / "type");
  return !type.empty() && type != "0";
}

}  // namespace

std::vector<PortDescription> ListPorts(const std::string& sysfs) {
  std::vector<PortDescription> ports;
  std::error_code error;
  for (const fs::directory_entry& entry : fs::directory_iterator(fs::path(sysfs) / "class/tty", error)) {
    if (!fs::exists(entry.path() / "device")) continue;
    PortDescription port{.path = "/dev/" + entry.path().filename().string()};
    const fs::path usb = UsbInterface(entry.path() / "device");
    port.usb = !usb.empty();
    if (!port.usb && !IsFitted(entry.path())) continue;
    if (port.usb) DescribeUsb(port, usb);
    ports.push_back(std::move(port));
  }
  std::ranges::sort(ports, {}, &PortDescription::path);
  return ports;
}

std::string PortTable(const std::vector<PortDescription>& ports) {
  std::string table;
  for (const PortDescription& port : ports) {
    const bool on_board = !port.usb && port.path.starts_with('/');
    std::string about = port.usb ? "USB: " + port.name : on_board ? "on board" : "on the network";
    if (!port.serial_number.empty()) about += ", serial number " + port.serial_number;
    if (port.usb) about += ", socket " + port.usb_socket;
    if (!port.slot.empty()) about += ", slot " + port.slot;
    table += fmt::format("{:<16}  {}\n", port.path, about);
  }
  return table;
}

std::string OnlyPort(const std::vector<PortDescription>& ports) {
  std::vector<PortDescription> candidates;
  std::ranges::copy_if(ports, std::back_inserter(candidates), &PortDescription::usb);
  if (candidates.size() == 1) return candidates.front().path;
  if (candidates.empty()) throw UsageError("no USB serial port is plugged in: name the port with --port");
  throw UsageError("which port? Name it with --port:\n" + PortTable(candidates));
}

}  // namespace station
