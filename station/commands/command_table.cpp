#include <fmt/format.h>

#include <algorithm>
#include <stdexcept>

#include "station/commands/command.h"
#include "station/commands/rows.h"
#include "station/commands/status.h"

namespace station {

namespace {

std::vector<Command> AllRows() {
  std::vector<Command> rows;
  for (const auto& part : {ServiceRows(), FlashRows(), MaintenanceRows(), ModemRows(), SoundRows(),
                           DeviceRows(), BluetoothRows(), CameraRows()}) {
    rows.insert(rows.end(), part.begin(), part.end());
  }
  std::ranges::sort(rows, {}, &Command::code);
  return rows;
}

}  // namespace

const std::vector<Command>& CommandTable() {
  static const std::vector<Command> table = AllRows();
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
  const auto own = std::ranges::find(command.statuses, status, &StatusRow::code);
  const std::string name = StatusName(status);
  const std::string meaning = own != command.statuses.end() ? own->meaning : StatusMeaning(status);
  return fmt::format("{}{}{}: {}", status, name.empty() ? "" : " ", name, meaning);
}

std::string AnswerFailure(const Command& command, std::span<const std::uint8_t> answer) {
  const auto status = AnswerStatus(command.answer, answer);
  if (!status) return "";
  if (*status < 0) return DescribeStatus(command, *status);
  const AnswerField& first = command.answer.front();
  if (first.kind == AnswerField::Kind::Alive && *status != 1) {
    return fmt::format("answered {} where 1 is the only answer", *status);
  }
  return "";
}

}  // namespace station
