#include "simulator/phone_commands.h"

#include <fmt/format.h>

#include <stdexcept>
#include <system_error>

#include "simulator/simulated_phone.h"

namespace simulator {
namespace {

using Words = std::vector<std::string>;

std::string OnPath(SimulatedPhone& phone, const Words& words,
                   void (SimulatedPhone::*work)(const std::string&)) {
  if (words.size() != 1) throw std::invalid_argument("The path of a device or file is wanted.");
  try {
    (phone.*work)(words[0]);
  } catch (const std::system_error&) {
    throw std::invalid_argument(fmt::format("There is no {}.", words[0]));
  }
  return {};
}

std::string SetWaiting(SimulatedPhone& phone, const Words& words) {
  if (words.size() != 1 || (words[0] != "on" && words[0] != "off")) {
    throw std::invalid_argument("waiting is on or off.");
  }
  phone.SetInstantSleeps(words[0] == "off");
  return {};
}

}  // namespace

std::vector<ModelCommand> PhoneCommands(SimulatedPhone& phone) {
  return {
      {"fault",
       "open|request|exec|sleep|thread PATH [error=EIO] [number=N] [nth=N] [times=N|always] [size=BYTES] "
       "[delay=MS]",
       "makes a call fail, come short or take long",
       [&phone](const Words& words) {
         phone.GetFaults().Add(ParseFaultRule(words));
         return std::string();
       }},
      {"clear-faults", "", "takes all faults back",
       [&phone](const Words&) {
         phone.GetFaults().Clear();
         return std::string();
       }},
      {"missing", "PATH", "takes a device or file away",
       [&phone](const Words& words) { return OnPath(phone, words, &SimulatedPhone::TakeAway); }},
      {"present", "PATH", "puts it back",
       [&phone](const Words& words) { return OnPath(phone, words, &SimulatedPhone::PutBack); }},
      {"waiting", "on|off", "lets the phone's sleeps take their time, or none",
       [&phone](const Words& words) { return SetWaiting(phone, words); }},
  };
}

}  // namespace simulator
