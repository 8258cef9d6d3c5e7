// What a program that shows the phone asks it for: everything that can be seen of it from outside, and its
// production records, as JSON.
#pragma once

#include <string>

namespace simulator {

class SimulatedPhone;

// Lamps, motor, lines, sound, radio, card, modem, clock, camera, faults: one object.
std::string StateAsJson(SimulatedPhone& phone);

// Identity, address, factory information, partition word and the verdict on both of its copies: one object.
std::string RecordsAsJson(SimulatedPhone& phone);

}  // namespace simulator
