// Arguments of the tool's commands. An argument is given as text, on the command line or in a test plan, and
// has one way into a request's bytes. The same record describes the request's layout, so that help, check,
// encoding and documentation cannot disagree.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <variant>
#include <vector>

#include "protocol/statement.h"
#include "station/commands/bytes.h"

namespace station {

using protocol::Choice;

// The values given for arguments, by name: text from a person or a plan, a number from the program itself.
using ArgumentValue = std::variant<std::string, std::int64_t>;
using ArgumentValues = std::map<std::string, ArgumentValue, std::less<>>;

struct Argument {
  enum class Kind {
    Ignored,  // bytes that the phone reads and throws away; sent as zeros, never asked for
    Number,   // a 32-bit word, decimal or 0x hexadecimal, signed or unsigned
    Text,     // characters, padded with zero bytes
    Digits,   // exactly `size` decimal digits
    Address,  // six bytes, AA:BB:CC:DD:EE:FF
    Data,     // hexadecimal bytes, at most `size`, padded with zero bytes
    Content,  // the name of a file of exactly `size` bytes
    Moment,   // "YYYY-MM-DD HH:MM:SS" or "now" (the station's local time), six words
    Word,     // text for the tool itself; not part of a request
    Flag,     // yes or no for the tool itself; not part of a request
  };

  Kind kind;
  std::size_t size;
  std::string name;
  std::string help;
  std::optional<std::string> fallback;  // taken when the argument is not given; without one it must be given
  std::string same_as;                  // when not given: the named argument's text
  std::string length_of;                // when not given: the number of bytes of the named argument
  bool positional = true;
  bool only_choices = false;  // no other word or number
  protocol::Range range = {};
  // The phone passes every value on to a driver or tool, so that a person may insist on one that is refused.
  bool may_insist = false;
  std::vector<Choice> choices;

  Argument Optional(std::string text) const;            // --name TEXT, with a default
  Argument OptionalPositional(std::string text) const;  // may be left off at the end
  Argument Named() const;                               // --name TEXT, and it must be given
  Argument SameAs(std::string other) const;
  Argument LengthOf(std::string other) const;
  Argument Choices(std::vector<Choice> words) const;      // these words or any number
  Argument OnlyChoices(std::vector<Choice> words) const;  // these words and nothing else
  Argument Within(protocol::Range values) const;
};

// The argument that a field of a request is given by.
Argument ArgumentFor(const protocol::Field& field);
Argument ArgumentFor(std::span<const protocol::Field> fields, std::string_view name);

Argument Number(std::string name, std::string help);
Argument Text(std::string name, std::size_t size, std::string help);
Argument Content(std::string name, std::size_t size, std::string help);
Argument Word(std::string name, std::string help);
Argument Flag(std::string name, std::string help);

// Throws UsageError, with a message that names the argument, what it may be and the unit, when the text is no
// value for it. If `insisted`, only what cannot be sent at all is refused of those that allow it.
void CheckArgument(const Argument& argument, const std::string& text, bool insisted = false);

// The value given for the argument, or what stands in for it. Throws UsageError if there is neither.
ArgumentValue ValueOf(const std::vector<Argument>& all, const Argument& argument,
                      const ArgumentValues& given);

// The request that the arguments make, in their order. Throws UsageError.
Bytes EncodeRequest(const std::vector<Argument>& request, const ArgumentValues& given);

// Throw UsageError if the value is no number for the argument.
std::int64_t NumberOf(const Argument& argument, const ArgumentValue& value);

std::string TextOf(const ArgumentValue& value);

// "0 to 22050 Hz"; empty if no range is stated.
std::string RangeText(const protocol::Range& range);

// "off, or 0 to 7": all that the argument may be; empty if nothing is stated.
std::string AllowedText(const Argument& argument);

// A number in the range's unit: 98.5 for 1576 steps of 1/16, and for as many of the finer ones as make 98.5
// too. A tenth, if one is rounded to this number.
double UnitsOf(const protocol::Range& range, std::int64_t number);

// Shown in help for the value: "NUMBER", "AA:BB:CC:DD:EE:FF" and so on.
std::string ValueForm(const Argument& argument);

}  // namespace station
