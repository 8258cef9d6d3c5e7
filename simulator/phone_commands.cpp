#include "simulator/phone_commands.h"

#include <fmt/format.h>

#include <stdexcept>
#include <system_error>

#include "simulator/phone_state.h"
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

std::string ChangeFaults(Faults& faults, const Words& words) {
  if (words.empty()) {
    std::string list;
    for (const std::string& fault : faults.List()) list += fault + "\n";
    return list;
  }
  if (words.size() == 2 && words[0] == "remove") {
    faults.Remove(static_cast<size_t>(CountWord(words[1])));
  } else {
    faults.Add(ParseFaultRule(words));
  }
  return {};
}

std::string FileContent(SimulatedPhone& phone, const Words& words) {
  if (words.size() != 1) throw std::invalid_argument("The path of a file in the phone is wanted.");
  try {
    return phone.Root().ReadFile(words[0]);
  } catch (const std::exception&) {
    throw std::invalid_argument(fmt::format("There is no file {}.", words[0]));
  }
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
       "[open|request|exec|sleep|thread PATH [error=EIO] [number=N] [nth=N] [times=N|always] [size=BYTES] "
       "[delay=MS] [power=cut] | remove PLACE]",
       "lists the faults, makes a call fail, come short or take long, cuts the power when a device is opened "
       "to "
       "be written, or takes a fault of the list back",
       [&phone](const Words& words) { return ChangeFaults(phone.GetFaults(), words); }},
      {"clear-faults", "", "takes all faults back",
       [&phone](const Words&) {
         phone.GetFaults().Clear();
         return std::string();
       }},
      {"missing", "PATH", "takes a device or file away",
       [&phone](const Words& words) { return OnPath(phone, words, &SimulatedPhone::TakeAway); }},
      {"present", "PATH", "puts it back",
       [&phone](const Words& words) { return OnPath(phone, words, &SimulatedPhone::PutBack); }},
      {"state", "", "all that can be seen of the phone, as JSON",
       [&phone](const Words&) { return StateAsJson(phone); }},
      {"records", "", "the production records in flash, decoded, as JSON",
       [&phone](const Words&) { return RecordsAsJson(phone); }},
      {"file", "PATH FILE", "the content of a file in the phone",
       [&phone](const Words& words) { return FileContent(phone, words); },
       FileWord{FileWord::Opener::Caller, 1}},
      {"waiting", "on|off", "lets the phone's sleeps take their time, or none",
       [&phone](const Words& words) { return SetWaiting(phone, words); }},
  };
}

}  // namespace simulator
