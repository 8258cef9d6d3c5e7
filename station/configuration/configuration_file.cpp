#include "station/configuration/configuration_file.h"

#include <fmt/format.h>

#include <algorithm>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <set>

#include "station/commands/errors.h"
#include "station/tasks/operation.h"

namespace station {

namespace {

using nlohmann::json;

constexpr int DEEPEST = 4;

// JSON takes the last of several equal keys without a word; here each of them is someone's slot.
class KeyCheck {
 public:
  bool operator()(int depth, json::parse_event_t event, const json& parsed) {
    if (depth > DEEPEST) throw UsageError(fmt::format("it is nested more than {} deep", DEEPEST));
    const auto level = static_cast<std::size_t>(depth);
    if (event == json::parse_event_t::object_start) keys_[level].clear();
    if (event == json::parse_event_t::key && !keys_[level - 1].insert(parsed.get<std::string>()).second) {
      throw UsageError(fmt::format("{} is there twice", parsed.dump()));
    }
    return true;
  }

 private:
  std::set<std::string> keys_[DEEPEST + 1];
};

json ParseFile(const std::string& path) {
  constexpr std::size_t LARGEST = 1u << 20;
  const std::string content = ReadFile(path, LARGEST);
  try {
    return json::parse(
        content,
        [check = KeyCheck()](int depth, json::parse_event_t event, json& parsed) mutable {
          return check(depth, event, parsed);
        },
        true, /*ignore_comments=*/true);
  } catch (const json::parse_error& error) {
    // The library's text tells the place: "... parse error at line 3, column 5: ...".
    const std::string text = error.what();
    throw UsageError(text.substr(std::min(text.find("parse error"), text.size())));
  }
}

std::string TextOfKey(const json& value, const std::string& key) {
  if (!value.is_string() || value.get_ref<const std::string&>().empty()) {
    throw UsageError(fmt::format("\"{}\" must be a text that is not empty", key));
  }
  return value;
}

void CheckName(const std::string& name) {
  const auto allowed = [](unsigned char c) {
    return std::isalnum(c) != 0 || c == '-' || c == '_' || c == '.';
  };
  if (name.empty() || name.front() == '-' || !std::ranges::all_of(name, allowed)) {
    throw UsageError(
        "a slot's name has only letters, digits, \"-\", \"_\" and \".\", and does not begin with \"-\"");
  }
}

Slot ParseSlot(const std::string& name, const json& description, const std::string& path) {
  CheckName(name);
  Slot slot{.name = name, .source = path};
  if (description.is_string()) {
    slot.device = TextOfKey(description, name);
    if (slot.device.find_first_of("/:") == std::string::npos) {
      throw UsageError("the port is neither a path nor an address");
    }
    return slot;
  }
  if (!description.is_object() || description.empty()) {
    throw UsageError("a slot is a port, or an object with \"serial-number\" or \"usb\"");
  }
  for (const auto& [key, value] : description.items()) {
    if (key != "serial-number" && key != "usb") throw UsageError(fmt::format("unknown key \"{}\"", key));
    (key == "usb" ? slot.usb : slot.serial_number) = TextOfKey(value, key);
  }
  return slot;
}

void ParseSlots(ConfigurationFile& file, const json& slots) {
  if (!slots.is_object()) throw UsageError("\"ports\" must be an object with a key for each slot");
  for (const auto& [name, description] : slots.items()) {
    try {
      file.slots.push_back(ParseSlot(name, description, file.path));
    } catch (const UsageError& error) {
      throw UsageError(fmt::format("\"ports\", \"{}\": {}", name, error.what()));
    }
  }
}

void ParseSetting(ConfigurationFile& file, const std::string& key, const json& value) {
  if (std::ranges::none_of(SettingDescriptions(), [&](const auto& known) { return key == known.key; })) {
    throw UsageError(fmt::format("unknown key \"{}\"", key));
  }
  const std::string text = TextOfKey(value, key);
  // It is read wherever the tool is started.
  if (key == "reports" && !std::filesystem::path(text).is_absolute()) {
    throw UsageError("\"reports\" must be an absolute path");
  }
  file.settings[key] = text;
}

}  // namespace

ConfigurationFile ReadConfigurationFile(const std::string& path) {
  try {
    ConfigurationFile file{.path = path, .settings = {}, .slots = {}};
    const json description = ParseFile(path);
    if (!description.is_object()) throw UsageError("a configuration must be an object");
    for (const auto& [key, value] : description.items()) {
      if (key == "ports") {
        ParseSlots(file, value);
      } else {
        ParseSetting(file, key, value);
      }
    }
    return file;
  } catch (const std::exception& error) {
    const std::string text = error.what();
    // A file that cannot be read is named already.
    throw UsageError(text.find(path) != std::string::npos ? text : fmt::format("{}: {}", path, text));
  }
}

}  // namespace station
