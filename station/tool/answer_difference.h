// Two answers to the same command, compared and explained by the names of the protocol's statement.
#pragma once

#include <cstdint>
#include <span>
#include <string>

namespace station {

// Where a now different answer differs from the recorded one.
struct AnswerDifference {
  std::string command;   // the statement's name; empty for a code that is not stated
  std::string field;     // empty if the answer has no such field
  std::string recorded;  // the field's value in words; empty if it was not there
  std::string now;
  std::string text;  // lines that say all of it with the bytes, the first one without the command
};

// `sent` begins with the command's code. The two answers differ.
AnswerDifference ExplainDifference(std::span<const std::uint8_t> sent, std::span<const std::uint8_t> recorded,
                                   std::span<const std::uint8_t> now);

// Bytes that came after the recorded answer, or where none was recorded.
AnswerDifference ExplainExtra(std::span<const std::uint8_t> sent, std::span<const std::uint8_t> recorded,
                              std::span<const std::uint8_t> extra);

}  // namespace station
