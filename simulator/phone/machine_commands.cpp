// The commands that a person gives to the phone as a whole, beside those of its models.
#include <fmt/format.h>

#include <filesystem>
#include <stdexcept>

#include "simulator/phone/machine.h"

namespace simulator {

std::vector<ModelCommand> Machine::Commands() {
  using Words = std::vector<std::string>;
  std::vector<ModelCommand> commands = {
      {"fault",
       "open|request|exec|sleep|thread PATH [error=EIO] [number=N] [nth=N] [times=N|always] [size=BYTES] "
       "[delay=MS]",
       "makes a call fail, come short or take long", [this](const Words& words) { return AddFault(words); }},
      {"clear-faults", "", "takes all faults back",
       [this](const Words&) {
         faults.Clear();
         return std::string();
       }},
      {"missing", "PATH", "takes a device or file away",
       [this](const Words& words) { return OnPath(words, &Machine::TakeAway); }},
      {"present", "PATH", "puts it back",
       [this](const Words& words) { return OnPath(words, &Machine::PutBack); }},
      {"waiting", "on|off", "lets the phone's sleeps take their time, or none",
       [this](const Words& words) { return SetWaiting(words); }},
  };
  for (const auto& model : models) {
    for (ModelCommand& command : model->Commands()) commands.push_back(std::move(command));
  }
  return commands;
}

std::string Machine::Command(const std::vector<std::string>& words) {
  if (words.empty()) throw std::invalid_argument("A command is missing.");
  for (const ModelCommand& command : Commands()) {
    if (command.name != words[0]) continue;
    std::string answer;
    loop.Run([&] { answer = command.run({words.begin() + 1, words.end()}); });
    return answer;
  }
  throw std::invalid_argument(fmt::format("The phone knows no command \"{}\".", words[0]));
}

std::string Machine::AddFault(const std::vector<std::string>& words) {
  faults.Add(ParseFaultRule(words));
  return {};
}

std::string Machine::OnPath(const std::vector<std::string>& words,
                            void (Machine::*work)(const std::string&)) {
  if (words.size() != 1) throw std::invalid_argument("The path of a device or file is wanted.");
  try {
    (this->*work)(words[0]);
  } catch (const std::filesystem::filesystem_error&) {
    throw std::invalid_argument(fmt::format("There is no {}.", words[0]));
  }
  return {};
}

std::string Machine::SetWaiting(const std::vector<std::string>& words) {
  if (words.size() != 1 || (words[0] != "on" && words[0] != "off")) {
    throw std::invalid_argument("waiting is on or off.");
  }
  calls.SetInstantSleeps(words[0] == "off");
  return {};
}

}  // namespace simulator
