// The commands for the phone as a whole. Its models have commands of their own.
#pragma once

#include <vector>

#include "simulator/phone/device_model.h"

namespace simulator {

class SimulatedPhone;

std::vector<ModelCommand> PhoneCommands(SimulatedPhone& phone);

}  // namespace simulator
