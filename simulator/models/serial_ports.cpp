#include "simulator/models/serial_ports.h"

#include <sys/socket.h>
#include <termios.h>

#include <cerrno>
#include <memory>

namespace simulator {

HostPort::HostPort(PhoneServices& phone)
    : DeviceModel(phone),
      exchanges_(phone.journal),
      relay_(phone.loop,
             [this](bool from_phone, std::string_view bytes) { exchanges_.Take(from_phone, bytes); }) {}

std::vector<std::string> HostPort::Paths() const {
  return {"/dev/usb/tts/0"};
}

OpenAnswer HostPort::Open(const OpenCall& call) {
  if (!state.plugged) return OpenAnswer::Refusal(ENODEV);
  return OpenAnswer::DescriptorOf(PhoneSide().Plugged(), PhoneSide().Open(call));
}

std::vector<ModelCommand> HostPort::Commands() {
  const auto command = [this](void (HostPort::*act)()) {
    return [this, act](const std::vector<std::string>&) {
      (this->*act)();
      return std::string();
    };
  };
  return {{"unplug", "", "pulls the serial cable out of the phone", command(&HostPort::Unplug), {}, {{}}},
          {"plug", "", "plugs the serial cable in", command(&HostPort::Plug)},
          {"replug", "", "pulls the serial cable out of the phone and plugs it in again",
           command(&HostPort::Replug)},
          {"exchanges", "[SINCE]",
           "the newest commands with their answers, decoded, as a list of JSON objects; SINCE leaves out "
           "those up "
           "to that number",
           [this](const std::vector<std::string>& words) {
             if (words.size() > 1) throw std::invalid_argument("exchanges takes one number or nothing.");
             return exchanges_.AsJson(words.empty() ? 0 : CountWord(words[0]));
           }}};
}

ModemDataPort::ModemDataPort(PhoneServices& phone) : DeviceModel(phone), relay_(phone.loop) {
  // Until a terminal program has joined, bytes wait for it as they are.
  termios settings = {};
  tcgetattr(ModemSide().DeviceDescriptor(), &settings);
  cfmakeraw(&settings);
  tcsetattr(ModemSide().DeviceDescriptor(), TCSANOW, &settings);
}

std::vector<std::string> ModemDataPort::Paths() const {
  return {"/dev/csmi_tty/7"};
}

OpenAnswer ModemDataPort::Open(const OpenCall& call) {
  if (state.input_ended) return OpenAtItsEnd(call);
  return OpenAnswer::DescriptorOf(PhoneSide().Plugged(), PhoneSide().Open(call));
}

OpenAnswer ModemDataPort::OpenAtItsEnd(const OpenCall& call) {
  int ends[2];
  if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0) return OpenAnswer::Refusal(errno);
  const auto modem = std::make_shared<posix::FileDescriptor>(ends[0]);
  posix::FileDescriptor port(ends[1]);
  fcntl(port.Get(), F_SETFL, call.flags & O_NONBLOCK);
  shutdown(modem->Get(), SHUT_WR);
  const auto watch = std::make_shared<PollLoop::Id>();
  *watch = phone_.loop.Watch(modem->Get(), POLLIN, [this, modem, watch](short) {
    char bytes[1 << 12];
    const ssize_t size = read(modem->Get(), bytes, sizeof bytes);
    if (size <= 0) return phone_.loop.Unwatch(*watch);
    ModemSide().Send({bytes, static_cast<size_t>(size)});
  });
  return OpenAnswer::PlainDescriptor(std::move(port));
}

std::vector<ModelCommand> ModemDataPort::Commands() {
  return {
      {"modem-data", "[hang-up]",
       "tells the terminal device where a terminal program is the modem's data side, or hangs the port up",
       [this](const std::vector<std::string>& words) {
         if (words == std::vector<std::string>{"hang-up"}) {
           PhoneSide().HangUp();
         } else if (!words.empty()) {
           throw std::invalid_argument("modem-data takes hang-up or nothing.");
         }
         return ModemSide().DevicePath() + "\n";
       }}};
}

}  // namespace simulator
