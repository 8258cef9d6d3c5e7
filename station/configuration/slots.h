// Slots and the serial ports that are plugged in.
#pragma once

#include <string>
#include <vector>

#include "station/configuration/configuration.h"
#include "station/link/port_list.h"

namespace station {

// "USB serial number 12345", "USB socket 1-4.2", or the slot's device.
std::string SlotPlace(const Slot& slot);

// The port of the slot: its device, or the one USB port that fits. Throws LinkFailure if none is plugged in
// or several fit.
std::string SlotPort(const Slot& slot, const std::vector<PortDescription>& ports);

// The port that a person names: a slot, or else the port itself. Throws UsageError, which lists the slots,
// for a word that is neither, and LinkFailure as SlotPort.
std::string NamedPort(const std::string& name, const Configuration& configuration,
                      const std::vector<PortDescription>& ports);

// The slot that has this port now; empty if none has.
std::string SlotOf(const std::string& port, const Configuration& configuration,
                   const std::vector<PortDescription>& ports);

// Fills in the ports' slots, and adds the slots that are an address on the network.
void NameSlots(std::vector<PortDescription>& ports, const Configuration& configuration);

}  // namespace station
