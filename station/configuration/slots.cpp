#include "station/configuration/slots.h"

#include <fmt/format.h>

#include <algorithm>
#include <filesystem>

#include "station/commands/errors.h"

namespace station {

namespace {

namespace fs = std::filesystem;

bool IsAddress(const Slot& slot) {
  return !slot.device.empty() && slot.device.front() != '/' && slot.device.find(':') != std::string::npos;
}

bool Fits(const Slot& slot, const PortDescription& port) {
  if (!slot.device.empty()) {
    std::error_code error;
    return slot.device == port.path || fs::canonical(slot.device, error) == port.path;
  }
  const bool number = slot.serial_number.empty() || slot.serial_number == port.serial_number;
  const bool socket = slot.usb.empty() || slot.usb == port.usb_socket || slot.usb == port.usb_interface;
  return port.usb && number && socket;
}

}  // namespace

std::string SlotPlace(const Slot& slot) {
  if (!slot.device.empty()) return slot.device;
  std::string place;
  if (!slot.serial_number.empty()) place = "USB serial number " + slot.serial_number;
  if (!slot.usb.empty()) place += fmt::format("{}USB socket {}", place.empty() ? "" : " in ", slot.usb);
  return place;
}

std::string SlotPort(const Slot& slot, const std::vector<PortDescription>& ports) {
  if (!slot.device.empty()) return slot.device;
  std::vector<PortDescription> fitting;
  std::ranges::copy_if(ports, std::back_inserter(fitting),
                       [&](const auto& port) { return Fits(slot, port); });
  if (fitting.size() == 1) return fitting.front().path;
  if (fitting.empty()) {
    throw LinkFailure(
        fmt::format("no serial port is plugged in for slot {} ({})", slot.name, SlotPlace(slot)));
  }
  throw LinkFailure(
      fmt::format("several ports fit slot {} ({}):\n{}", slot.name, SlotPlace(slot), PortTable(fitting)));
}

std::string NamedPort(const std::string& name, const Configuration& configuration,
                      const std::vector<PortDescription>& ports) {
  if (const Slot* slot = configuration.FindSlot(name)) return SlotPort(*slot, ports);
  std::error_code error;
  if (name.find_first_of("/:") != std::string::npos || fs::exists(name, error)) return name;
  std::string slots;
  for (const Slot& slot : configuration.slots) slots += (slots.empty() ? "" : ", ") + slot.name;
  throw UsageError(fmt::format("there is no port or slot \"{}\"; {}", name,
                               slots.empty() ? "no slots are configured" : "the slots are " + slots));
}

std::string SlotOf(const std::string& port, const Configuration& configuration,
                   const std::vector<PortDescription>& ports) {
  const auto known = std::ranges::find(ports, port, &PortDescription::path);
  const PortDescription description = known != ports.end() ? *known : PortDescription{.path = port};
  const auto slot =
      std::ranges::find_if(configuration.slots, [&](const Slot& each) { return Fits(each, description); });
  return slot != configuration.slots.end() ? slot->name : "";
}

void NameSlots(std::vector<PortDescription>& ports, const Configuration& configuration) {
  for (PortDescription& port : ports) {
    for (const Slot& slot : configuration.slots) {
      if (Fits(slot, port)) port.slot += (port.slot.empty() ? "" : ", ") + slot.name;
    }
  }
  for (const Slot& slot : configuration.slots) {
    if (IsAddress(slot)) ports.push_back({.path = slot.device, .slot = slot.name});
  }
}

}  // namespace station
