// Answers of the phone: their layout, and what they say once decoded.
#pragma once

#include <cstdint>
#include <nlohmann/json.hpp>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "protocol/statement.h"
#include "station/commands/bytes.h"

namespace station {

// One thing read from an answer, as a value for JSON and limits, and as text for a person.
struct Reading {
  std::string name;
  nlohmann::ordered_json value;
  std::string text;
  std::string unit = {};  // of the value; empty if the protocol states none
};

// A reading before there is one. A list has other values in it.
struct ReadingKind {
  enum class Value { Number, YesNo, Text, List };

  std::string name;
  std::string unit;
  Value value;
};

std::size_t AnswerSize(const std::vector<protocol::Field>& layout);

// The first word of an answer; nothing for a layout without one (a command that is never answered).
std::optional<std::int32_t> AnswerStatus(const std::vector<protocol::Field>& layout,
                                         std::span<const std::uint8_t> bytes);

// What a whole answer says. Of a failed one only the status is worth reading, and that is not in the
// readings.
std::vector<Reading> DecodeAnswer(const std::vector<protocol::Field>& layout,
                                  std::span<const std::uint8_t> bytes);

// The kinds of readings like these: an example is enough to know them.
std::vector<ReadingKind> KindsOf(const std::vector<Reading>& examples);

// What an answer of this layout can say.
std::vector<ReadingKind> AnswerKinds(const std::vector<protocol::Field>& layout);

}  // namespace station
