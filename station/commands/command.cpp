#include "station/commands/command.h"

#include <fmt/format.h>

#include <algorithm>
#include <stdexcept>

#include "station/commands/names.h"
#include "station/commands/rows.h"

namespace station {

namespace {

Argument& FindField(std::vector<Argument>& request, const std::string& name) {
  const auto found = std::ranges::find(request, name, &Argument::name);
  if (found == request.end()) throw std::logic_error("no field " + name);
  return *found;
}

void CheckVerb(std::vector<Argument>& request, const Verb& verb) {
  for (const auto& [name, value] : verb.settled) FindField(request, name);
  if (!verb.leads.empty()) FindField(request, verb.leads);
}

}  // namespace

Presentation Default(std::string field, std::int64_t value) {
  return {std::move(field),
          [](const Argument& argument, const std::string& text) { return argument.Optional(text); },
          std::to_string(value)};
}

Presentation DefaultPositional(std::string field, std::int64_t value) {
  return {std::move(field),
          [](const Argument& argument, const std::string& text) { return argument.OptionalPositional(text); },
          std::to_string(value)};
}

Presentation SameAs(std::string field, std::string other) {
  return {std::move(field),
          [](const Argument& argument, const std::string& name) { return argument.SameAs(name); },
          std::move(other)};
}

Presentation LengthOf(std::string field, std::string other) {
  return {std::move(field),
          [](const Argument& argument, const std::string& name) { return argument.LengthOf(name); },
          std::move(other)};
}

Presentation FromFile(std::string field, std::string argument) {
  return {std::move(field),
          [](const Argument& bytes, const std::string& name) {
            return Content(name, bytes.size,
                           fmt::format("file with the {} bytes of {}", bytes.size, bytes.help));
          },
          std::move(argument)};
}

Command MakeCommand(const protocol::CommandDescription& stated, std::chrono::milliseconds answer_time,
                    const std::vector<Presentation>& presentations, std::vector<Verb> verbs) {
  Command command{stated.code, stated.name, stated.action,   {},
                  {},          answer_time, stated.statuses, std::move(verbs)};
  for (const protocol::Field& field : stated.request) command.request.push_back(ArgumentFor(field));
  for (const Presentation& presentation : presentations) {
    Argument& argument = FindField(command.request, presentation.field);
    argument = presentation.change(argument, presentation.detail);
  }
  for (const Verb& verb : command.verbs) CheckVerb(command.request, verb);
  if (stated.answering != protocol::Answering::Never) {
    command.answer.push_back(stated.first_word);
    command.answer.insert(command.answer.end(), stated.data.begin(), stated.data.end());
  }
  return command;
}

const std::vector<Command>& CommandTable() {
  static const std::vector<Command> table = [] {
    std::vector<Command> rows = CommandRows();
    std::ranges::sort(rows, {}, &Command::code);
    return rows;
  }();
  return table;
}

const Command* FindCommand(std::uint32_t code) {
  const auto row = std::ranges::lower_bound(CommandTable(), code, {}, &Command::code);
  return row != CommandTable().end() && row->code == code ? &*row : nullptr;
}

const Command& GetCommand(std::uint32_t code) {
  const Command* command = FindCommand(code);
  if (command == nullptr) throw std::logic_error(fmt::format("no row for code 0x{:02X}", code));
  return *command;
}

std::string DescribeStatus(const Command& command, std::int32_t status) {
  const auto own = std::ranges::find(command.statuses, status, &protocol::StatusMeaning::status);
  const std::string name = StatusName(status);
  const std::string meaning = own != command.statuses.end() ? own->meaning : StatusText(status);
  return fmt::format("{}{}{}: {}", status, name.empty() ? "" : " ", name, meaning);
}

std::string AnswerFailure(const Command& command, std::span<const std::uint8_t> answer) {
  const auto status = AnswerStatus(command.answer, answer);
  if (!status) return "";
  if (*status < 0) return DescribeStatus(command, *status);
  if (command.answer.front().form == protocol::Form::Alive && *status != 1) {
    return fmt::format("answered {} instead of 1, the only right answer", *status);
  }
  return "";
}

}  // namespace station
