// The command table: one row for each command of the protocol. Everything that the tool knows about a command
// stands in its row; the command line, the decoding, the checks and the protocol page are made from it.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

#include "station/commands/answer.h"
#include "station/commands/argument.h"

namespace station {

struct StatusRow {
  std::int32_t code;
  std::string meaning;  // what this code says about this command
};

// A way to use a command: the words on the command line, with some of the request's fields already settled.
struct Verb {
  std::string words;  // "radio play"
  std::string help;   // one line
  ArgumentTexts settled = {};
  std::string leads = {};     // an argument that has a default elsewhere and must be given here
  bool status_only = false;   // the first word is a mere status here, whatever it is to the other verbs
  std::string question = {};  // asked before it is sent; empty for a command that may simply be done
};

struct Command {
  std::uint32_t code;
  std::string name;    // stem of the command's names
  std::string action;  // what it does on the phone
  std::vector<Argument> request;
  std::vector<AnswerField> answer;        // empty for a command that is never answered
  std::chrono::milliseconds answer_time;  // how long a healthy phone may take to answer
  std::vector<StatusRow> statuses;        // failures it can report
  std::vector<Verb> verbs;
  std::string waits_for = {};  // the argument that says how many milliseconds more an answer may take
};

// How long commands take that only touch a device file or a page of memory.
constexpr std::chrono::milliseconds PROMPT{3000};

// All rows, by code.
const std::vector<Command>& CommandTable();

const Command* FindCommand(std::uint32_t code);

// For code that works with a command known to exist.
const Command& GetCommand(std::uint32_t code);

// The answer's bytes say that the command failed, and how; empty when it went well.
std::string AnswerFailure(const Command& command, std::span<const std::uint8_t> answer);

// "-9989 OPEN_FAILED: ..." with the command's own meaning of the code where it has one.
std::string DescribeStatus(const Command& command, std::int32_t status);

}  // namespace station
