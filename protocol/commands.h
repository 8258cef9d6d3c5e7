// All commands of the protocol, and a list of them for programs that go through them at run time.
#pragma once

#include <array>
#include <utility>

#include "protocol/bluetooth_commands.h"
#include "protocol/camera_commands.h"
#include "protocol/device_commands.h"
#include "protocol/flash_commands.h"
#include "protocol/link_commands.h"
#include "protocol/maintenance_commands.h"
#include "protocol/modem_commands.h"
#include "protocol/sound_commands.h"

namespace protocol {

// Basic commands are always served; a server may leave the extended ones, from this code on, out.
constexpr uint32_t FIRST_EXTENDED_CODE = 0x22;
// No code is this high.
constexpr uint32_t CODE_LIMIT = 0x100;

template <uint32_t code>
concept IsCommand = requires {
  sizeof(Statement<code>);
};

// A command's statement, as a value.
struct CommandDescription {
  uint32_t code;
  const char* name;
  const char* action;
  std::span<const Field> request;
  Field first_word;
  std::span<const Field> data;
  Answering answering;
  int32_t request_timeout_ms;
  uint32_t seconds_before_request;
  std::span<const StatusMeaning> statuses;
};

template <uint32_t code>
constexpr CommandDescription Describe() {
  using Command = Statement<code>;
  return {code,
          Command::name,
          Command::action,
          Command::Request::FIELDS,
          Command::first_word,
          Command::Data::FIELDS,
          Command::answering,
          Command::request_timeout_ms,
          Command::seconds_before_request,
          Command::statuses};
}

template <uint32_t... codes>
constexpr uint32_t CountCommands(std::integer_sequence<uint32_t, codes...>) {
  return (uint32_t{IsCommand<codes>} + ...);
}
constexpr uint32_t COMMAND_COUNT = CountCommands(std::make_integer_sequence<uint32_t, CODE_LIMIT>());

template <uint32_t... codes>
constexpr std::array<CommandDescription, COMMAND_COUNT> DescribeAll(
    std::integer_sequence<uint32_t, codes...>) {
  std::array<CommandDescription, COMMAND_COUNT> all = {};
  uint32_t count = 0;
  const auto add = [&]<uint32_t code>() {
    if constexpr (IsCommand<code>) all[count++] = Describe<code>();
  };
  (add.template operator()<codes>(), ...);
  return all;
}

// Every command that is stated, by code. It is made from the statements: none can be forgotten here.
inline constexpr std::array<CommandDescription, COMMAND_COUNT> COMMANDS =
    DescribeAll(std::make_integer_sequence<uint32_t, CODE_LIMIT>());

constexpr uint32_t SizeOf(std::span<const Field> fields) {
  uint32_t size = 0;
  for (const Field& field : fields) size += field.size;
  return size;
}
constexpr uint32_t RequestSize(const CommandDescription& command) {
  return SizeOf(command.request);
}
// 0 for a command that is never answered.
constexpr uint32_t AnswerSize(const CommandDescription& command) {
  return command.answering == Answering::Never ? 0 : command.first_word.size + SizeOf(command.data);
}

}  // namespace protocol
