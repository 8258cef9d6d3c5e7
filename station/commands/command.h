// What the tool knows about a command: the protocol's statement of it, how its arguments are given, how long
// its answer may take, and the words for it on the command line. The command line, the decoding, the checks
// and the protocol page are made from it.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

#include "protocol/commands.h"
#include "station/commands/answer.h"
#include "station/commands/argument.h"

namespace station {

// A way to use a command: the words on the command line, with some of the request's fields already settled.
struct Verb {
  std::string words;  // "radio play"
  std::string help;   // one line
  ArgumentValues settled = {};
  std::string leads = {};    // an argument that has a default elsewhere and must be given here
  bool status_only = false;  // the first word is a mere status here, whatever it is to the other verbs
  std::string question =
      {};  // asked before it is sent: it can be done only once, or what it ends is not restored
};

// How a field of a request is given, if not as the next argument of the command line.
struct Presentation {
  std::string field;
  Argument (*change)(const Argument&, const std::string& detail);
  std::string detail = {};
};
Presentation Default(std::string field, std::int64_t value);            // --field, or this value
Presentation DefaultPositional(std::string field, std::int64_t value);  // may be left off at the end
Presentation SameAs(std::string field, std::string other);              // --field, or what the other is
Presentation LengthOf(std::string field, std::string other);            // --field, or the other's bytes
Presentation FromFile(std::string field, std::string argument);         // the field's bytes are in a file

struct Command {
  std::uint32_t code;
  std::string name;    // stem of the command's names
  std::string action;  // what it does on the phone
  std::vector<Argument> request;
  std::vector<protocol::Field> answer;                // empty for a command that is never answered
  std::chrono::milliseconds answer_time;              // how long a healthy phone may take to answer
  std::span<const protocol::StatusMeaning> statuses;  // failures that it can report
  std::vector<Verb> verbs;
  std::string waits_for = {};  // the argument that says how many milliseconds more an answer may take
};

// How long commands take that only touch a device file or a page of memory.
constexpr std::chrono::milliseconds PROMPT{3000};

// The command as it is stated, with what the tool adds.
Command MakeCommand(const protocol::CommandDescription& stated, std::chrono::milliseconds answer_time,
                    const std::vector<Presentation>& presentations, std::vector<Verb> verbs);

// All commands, by code.
const std::vector<Command>& CommandTable();

const Command* FindCommand(std::uint32_t code);

// For code that works with a command known to exist.
const Command& GetCommand(std::uint32_t code);

// The answer's bytes say that the command failed, and how; empty if it went well.
std::string AnswerFailure(const Command& command, std::span<const std::uint8_t> answer);

// "-9989 OPEN_FAILED: ..." with the command's own meaning of the code if it has one.
std::string DescribeStatus(const Command& command, std::int32_t status);

}  // namespace station
