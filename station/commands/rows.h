// The rows of the command table, by the part of the phone that they are about.
#pragma once

#include <vector>

#include "station/commands/command.h"

namespace station {

std::vector<Command> ServiceRows();
std::vector<Command> FlashRows();
std::vector<Command> MaintenanceRows();
std::vector<Command> ModemRows();
std::vector<Command> SoundRows();
std::vector<Command> DeviceRows();
std::vector<Command> BluetoothRows();
std::vector<Command> CameraRows();

}  // namespace station
