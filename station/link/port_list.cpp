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

// The folder of the port's USB device: the first one above the port's folder that has a vendor number.
fs::path UsbDevice(fs::path device) {
  std::error_code error;
  for (device = fs::canonical(device, error); !error && device.has_relative_path();
       device = device.parent_path()) {
    if (fs::exists(device / "idVendor")) return device;
  }
  return {};
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
    const fs::path usb = UsbDevice(entry.path() / "device");
    port.usb = !usb.empty();
    if (!port.usb && !IsFitted(entry.path())) continue;
    if (port.usb) {
      const std::string maker = FirstLine(usb / "manufacturer");
      const std::string product = FirstLine(usb / "product");
      port.name = maker + (maker.empty() || product.empty() ? "" : " ") + product;
      port.serial_number = FirstLine(usb / "serial");
    }
    ports.push_back(std::move(port));
  }
  std::ranges::sort(ports, {}, &PortDescription::path);
  return ports;
}

std::string PortTable(const std::vector<PortDescription>& ports) {
  std::string table;
  for (const PortDescription& port : ports) {
    const std::string name = port.usb ? "USB: " + port.name : "on board";
    const std::string serial = port.serial_number.empty() ? "" : ", serial number " + port.serial_number;
    table += fmt::format("{:<16}  {}{}\n", port.path, name, serial);
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
