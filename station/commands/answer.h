// Answers of the phone: their layout, and what they say once decoded.
#pragma once

#include <cstdint>
#include <nlohmann/json.hpp>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "station/commands/bytes.h"

namespace station {

// One thing read from an answer, as a value for JSON and limits, and as text for a person.
struct Reading {
  std::string name;
  nlohmann::ordered_json value;
  std::string text;
};

struct AnswerField {
  enum class Kind {
    // One of these comes first in every answer; negative is a failure.
    Status,   // 0, or a positive value of the routine's own
    Alive,    // the word 1
    Count,    // how many of the data bytes behind it hold something
    Key,      // a key code
    Crosses,  // a bit for each cross on the touchscreen that is still to be touched
    // Data.
    Number,    // unsigned word
    Integer,   // signed word
    Length,    // how many of the data bytes behind it hold something
    Text,      // characters padded with zero bytes
    Block,     // raw bytes
    Address,   // six bytes of a device address
    Moment,    // six words, year to second
    Padding,   // says nothing
    Constant,  // one byte, always 0xFF
  };

  Kind kind;
  std::size_t size;
  std::string name;
  std::string meaning;
};

AnswerField Status();
AnswerField Padding(std::size_t size);

std::size_t AnswerSize(const std::vector<AnswerField>& layout);

// The first word of an answer; nothing for a layout without one (a command that is never answered).
std::optional<std::int32_t> AnswerStatus(const std::vector<AnswerField>& layout,
                                         std::span<const std::uint8_t> bytes);

// What a whole answer says. Of a failed one only the status is worth reading, and that is not in the
// readings.
std::vector<Reading> DecodeAnswer(const std::vector<AnswerField>& layout,
                                  std::span<const std::uint8_t> bytes);

}  // namespace station
