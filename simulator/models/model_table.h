// All the devices and tools of the phone.
#pragma once

#include <memory>
#include <vector>

#include "simulator/phone/device_model.h"

namespace simulator {

// Makes every model of the table; the first that claims a path gets it.
std::vector<std::unique_ptr<DeviceModel>> MakeModels(PhoneServices& phone);

}  // namespace simulator
