#include "simulator/phonesim/command_list.h"

#include <fmt/format.h>

#include "simulator/simulated_phone.h"

namespace simulator {
namespace {

// Of a phone that is made, but not started.
std::vector<ModelCommand> Commands() {
  return SimulatedPhone(PhoneOptions{}).Commands();
}

// A plain hyphen would be shown as a dash.
std::string Troff(const std::string& text) {
  std::string escaped;
  for (const char character : text) {
    if (character == '-') escaped += '\\';
    escaped += character;
  }
  return escaped;
}

}  // namespace

std::vector<std::string> PhoneCommandNames() {
  std::vector<std::string> names;
  for (const ModelCommand& command : Commands()) names.push_back(command.name);
  return names;
}

std::string PhoneCommandList() {
  std::string text;
  for (const ModelCommand& command : Commands()) {
    text += fmt::format("{} {}\n    {}\n", command.name, command.usage, command.help);
  }
  return text;
}

std::string ManualPhoneCommands() {
  std::string text;
  for (const ModelCommand& command : Commands()) {
    text += fmt::format(".TP\n\\fB{}\\fP {}\n{}\n", Troff(command.name), Troff(command.usage),
                        Troff(command.help));
  }
  return text;
}

}  // namespace simulator
