#include "simulator/models/host_port.h"

namespace simulator {

std::vector<std::string> HostPort::Paths() const {
  return {"/dev/usb/tts/0"};
}

OpenAnswer HostPort::Open(const OpenCall& call) {
  return OpenAnswer::Descriptor(PhoneSide().Open(call));
}

std::vector<ModelCommand> HostPort::Commands() {
  return {{"replug", "", "draws the serial cable out of the phone and puts it back",
           [this](const std::vector<std::string>&) {
             Replug();
             return std::string();
           }}};
}

}  // namespace simulator
