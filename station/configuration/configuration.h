// The station's configuration: the environment, the user's file and the system's file, merged in this order.
// An option of the command line stands above all of them; whoever has one asks here only without it.
#pragma once

#include <map>
#include <string>
#include <vector>

namespace station {

// One key of the file. Each setting has an environment variable too.
struct SettingDescription {
  const char* key;
  const char* variable;
  const char* help;
};

const std::vector<SettingDescription>& SettingDescriptions();

struct Setting {
  std::string value;
  std::string source;  // the path of a file, or "environment NAME"; empty if nothing says it
};

// A named place for a phone. It has a device, or it is found by what is plugged in.
struct Slot {
  std::string name;
  std::string device = {};         // a path, "tcp:HOST:PORT" or "rfc2217:HOST:PORT"
  std::string serial_number = {};  // of the USB device
  std::string usb = {};     // the socket as the kernel names it: "1-4.2", or "1-4.2:1.0" with the interface
  std::string source = {};  // the path of the file
};

struct Configuration {
  std::map<std::string, Setting> settings;  // by key
  std::vector<Slot> slots;                  // by name
  std::vector<std::string> files;           // those that were read, the strongest first

  // Empty if nothing says it.
  std::string Text(const std::string& key) const;

  // nullptr if there is none.
  const Slot* FindSlot(const std::string& name) const;
};

// Where the user's file and the system's file are looked for, whether or not they exist.
std::vector<std::string> ConfigurationFiles();

// Reads the environment and those of the files that exist; an earlier file is the stronger one. Throws
// UsageError with file and place for a mistake.
Configuration LoadConfiguration(const std::vector<std::string>& files = ConfigurationFiles());

}  // namespace station
