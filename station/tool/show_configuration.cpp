#include "station/tool/show_configuration.h"

#include <fmt/format.h>

#include <algorithm>

#include "posix/whole_output.h"
#include "station/commands/clean_text.h"
#include "station/configuration/slots.h"
#include "station/results/address.h"
#include "station/tool/simulated_executable.h"

namespace station {

namespace {

using nlohmann::ordered_json;

std::string ShownValue(const std::string& key, const std::string& value) {
  return key == "results" ? WithoutPassword(value) : value;
}

// Where the slot's port is now; empty if it is not plugged in.
std::string PortNow(const Slot& slot, const std::vector<PortDescription>& ports) {
  try {
    return SlotPort(slot, ports);
  } catch (const LinkFailure&) {
    return "";
  }
}

ordered_json SlotJson(const Slot& slot, const std::vector<PortDescription>& ports) {
  ordered_json json = {{"slot", slot.name}, {"port", PortNow(slot, ports)}};
  if (!slot.serial_number.empty()) json["serial-number"] = slot.serial_number;
  if (!slot.usb.empty()) json["usb"] = slot.usb;
  json["source"] = slot.source;
  return json;
}

std::string ConfigurationJson(const Configuration& configuration, const std::vector<PortDescription>& ports) {
  ordered_json json = {{"files", ordered_json::array()}};
  for (const std::string& path : ConfigurationFiles()) {
    json["files"].push_back({{"path", path}, {"read", std::ranges::count(configuration.files, path) > 0}});
  }
  for (const auto& [key, setting] : configuration.settings) {
    json["settings"][key] = {{"value", ShownValue(key, setting.value)}, {"source", setting.source}};
  }
  json["slots"] = ordered_json::array();
  for (const Slot& slot : configuration.slots) json["slots"].push_back(SlotJson(slot, ports));
  return JsonText(json) + "\n";
}

std::string ConfigurationTable(const Configuration& configuration,
                               const std::vector<PortDescription>& ports) {
  std::string table;
  for (const SettingDescription& known : SettingDescriptions()) {
    const auto found = configuration.settings.find(known.key);
    const bool said = found != configuration.settings.end();
    table += fmt::format("{:<14}  {:<34}  {}\n", known.key,
                         said ? ShownValue(known.key, found->second.value) : "-",
                         said ? found->second.source : std::string("not set; environment ") + known.variable);
  }
  for (const Slot& slot : configuration.slots) {
    const std::string now = slot.device.empty() ? PortNow(slot, ports) : "";
    const std::string where = !slot.device.empty() ? "" : now.empty() ? ", not plugged in" : ", now " + now;
    table += fmt::format("{:<14}  {:<34}  {}\n", "slot " + slot.name, SlotPlace(slot) + where, slot.source);
  }
  for (const std::string& path : ConfigurationFiles()) {
    const bool read = std::ranges::count(configuration.files, path) > 0;
    table += fmt::format("{:<14}  {}\n", read ? "file, read" : "file, missing", path);
  }
  return CleanText(table);
}

}  // namespace

ExitStatus ShowConfiguration(const Settings& settings, ToolCommand::Given&) {
  const std::vector<PortDescription> ports = ListPorts();
  posix::Print("{}", settings.json ? ConfigurationJson(settings.configuration, ports)
                                   : ConfigurationTable(settings.configuration, ports));
  return ExitStatus::Passed;
}

ExitStatus ShowPorts(const Settings& settings, ToolCommand::Given&) {
  std::vector<PortDescription> ports = ListPorts();
  NameSlots(ports, settings.configuration);
  if (!settings.json) {
    posix::Print("{}", ports.empty() ? "no serial port\n" : CleanText(PortTable(ports)));
    return ExitStatus::Passed;
  }
  ordered_json list = ordered_json::array();
  for (const PortDescription& port : ports) {
    list.push_back({{"port", port.path},
                    {"usb", port.usb},
                    {"name", port.name},
                    {"serial-number", port.serial_number},
                    {"socket", port.usb_socket},
                    {"slot", port.slot}});
  }
  posix::Print("{}\n", JsonText(list));
  return ExitStatus::Passed;
}

std::vector<std::string> PortNames() {
  std::vector<std::string> names;
  for (const Slot& slot : LoadConfiguration().slots) names.push_back(slot.name);
  for (const PortDescription& port : ListPorts()) names.push_back(port.path);
  for (const std::string& port : SimulatedPorts(PhonesimBesideTool())) names.push_back(port);
  return names;
}

}  // namespace station
