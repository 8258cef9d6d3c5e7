#include "station/configuration/configuration.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>

#include "station/configuration/configuration_file.h"

namespace station {

namespace {

namespace fs = std::filesystem;

constexpr const char* FILE_IN_FOLDER = "phonetest/configuration.json";

std::string Environment(const char* name) {
  const char* value = std::getenv(name);
  return value != nullptr ? value : "";
}

// What is there already is stronger.
void AddFile(Configuration& configuration, const ConfigurationFile& file) {
  for (const auto& [key, value] : file.settings) configuration.settings.try_emplace(key, value, file.path);
  for (const Slot& slot : file.slots) {
    if (configuration.FindSlot(slot.name) == nullptr) configuration.slots.push_back(slot);
  }
  configuration.files.push_back(file.path);
}

}  // namespace

const std::vector<SettingDescription>& SettingDescriptions() {
  static const std::vector<SettingDescription> descriptions = {
      {"port", "PHONETEST_PORT", "the port, or the name of a slot, if --port is not given"},
      {"station", "PHONETEST_STATION", "name of this station for the reports"},
      {"operator", "PHONETEST_OPERATOR", "name of the operator for the reports"},
      {"reports", "PHONETEST_REPORTS", "folder in which each run of a plan gets a folder for its report"},
      {"results", "PHONETEST_RESULTS", "address of the database of results"},
  };
  return descriptions;
}

std::string Configuration::Text(const std::string& key) const {
  const auto found = settings.find(key);
  return found == settings.end() ? "" : found->second.value;
}

const Slot* Configuration::FindSlot(const std::string& name) const {
  const auto found = std::ranges::find(slots, name, &Slot::name);
  return found == slots.end() ? nullptr : &*found;
}

std::vector<std::string> ConfigurationFiles() {
  std::vector<std::string> files;
  const fs::path folder = Environment("XDG_CONFIG_HOME");
  const fs::path home = Environment("HOME");
  // By the XDG rules a relative folder counts as none.
  if (folder.is_absolute()) {
    files.push_back(folder / FILE_IN_FOLDER);
  } else if (home.is_absolute()) {
    files.push_back(home / ".config" / FILE_IN_FOLDER);
  }
  files.push_back(fs::path("/etc") / FILE_IN_FOLDER);
  return files;
}

Configuration LoadConfiguration(const std::vector<std::string>& files) {
  Configuration configuration;
  for (const SettingDescription& setting : SettingDescriptions()) {
    const std::string value = Environment(setting.variable);
    if (!value.empty())
      configuration.settings[setting.key] = {value, std::string("environment ") + setting.variable};
  }
  for (const std::string& path : files) {
    // A folder that this user may not search, another user's home, counts as one without the file.
    std::error_code error;
    if (fs::exists(path, error)) AddFile(configuration, ReadConfigurationFile(path));
  }
  std::ranges::sort(configuration.slots, {}, &Slot::name);
  return configuration;
}

}  // namespace station
