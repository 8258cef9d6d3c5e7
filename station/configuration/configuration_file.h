// One configuration file: JSON with comments.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "station/configuration/configuration.h"

namespace station {

struct ConfigurationFile {
  std::string path;
  std::map<std::string, std::string> settings;
  std::vector<Slot> slots;
};

// Throws UsageError with the file and the place for a mistake, and for a file that cannot be read.
ConfigurationFile ReadConfigurationFile(const std::string& path);

}  // namespace station
