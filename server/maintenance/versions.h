// The version texts of the phone's system, configuration and resources.
#pragma once

#include <cstdint>

#include "protocol/selectors.h"

// Reads the first word of each version file into its buffer of VERSION_LENGTH + 1 bytes; a null buffer is
// skipped, and one whose file is missing or empty stays as it was. Gives 0, always.
int32_t ReadVersions(char* system_out, char* config_out, char* resource_out);
