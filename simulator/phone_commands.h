// The commands that a person gives to the phone as a whole, beside those of its models.
#pragma once

#include <vector>

#include "simulator/phone/device_model.h"

namespace simulator {

class SimulatedPhone;

std::vector<ModelCommand> PhoneCommands(SimulatedPhone& phone);

}  // namespace simulator
