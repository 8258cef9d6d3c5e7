#include "station/tool/answer_difference.h"

#include <fmt/format.h>

#include <algorithm>

#include "station/commands/command.h"

namespace station {

namespace {

using Part = std::span<const std::uint8_t>;

const Command* CommandOf(Part sent) {
  return sent.size() < 4 ? nullptr : FindCommand(WordAt(sent, 0));
}

// A field with its place in the answer.
struct PlacedField {
  protocol::Field field;
  std::size_t offset;
};

std::vector<PlacedField> FieldsOf(const Command& command) {
  std::vector<PlacedField> fields;
  std::size_t offset = 0;
  for (const protocol::Field& field : command.answer) {
    fields.push_back({field, offset});
    offset += field.size;
  }
  return fields;
}

// The field's bytes, as far as they came.
Part BytesOf(const PlacedField& placed, Part answer) {
  const std::size_t start = std::min(placed.offset, answer.size());
  return answer.subspan(start, std::min<std::size_t>(placed.field.size, answer.size() - start));
}

std::string StatusInWords(const Command& command, std::int32_t status) {
  if (status < 0) return DescribeStatus(command, status);
  return status == 0 ? "0 (it went well)" : std::to_string(status);
}

// What the field says; how much of it came, if that is not all.
std::string InWords(const Command& command, const PlacedField& placed, Part answer) {
  const Part bytes = BytesOf(placed, answer);
  if (bytes.empty()) return "nothing came";
  if (bytes.size() < placed.field.size)
    return fmt::format("{} of {} bytes came", bytes.size(), placed.field.size);
  // A failure stands in the first word, whatever that is otherwise.
  const auto word = placed.offset == 0 ? static_cast<std::int32_t>(WordAt(bytes, 0)) : 0;
  if (word < 0 || placed.field.form == protocol::Form::Status) return StatusInWords(command, word);
  if (placed.field.form == protocol::Form::Block) return HexText(bytes, "");
  std::string words;
  for (const Reading& reading : DecodeAnswer({placed.field}, bytes)) {
    words += (words.empty() ? "" : ", ") + (reading.text.empty() ? "\"\"" : reading.text);
    if (!reading.unit.empty()) words += " " + reading.unit;
  }
  return words.empty() ? HexText(bytes) : words;
}

std::string HexOrNone(Part bytes) {
  return bytes.empty() ? "nothing" : HexText(bytes);
}

std::string FieldLine(const PlacedField& placed, const AnswerDifference& difference) {
  const char* meaning = placed.field.meaning;
  return fmt::format("\n  field \"{}\"{}, bytes {} to {}: was {}, now {}", difference.field,
                     *meaning == '\0' ? "" : fmt::format(" ({})", meaning), placed.offset,
                     placed.offset + placed.field.size - 1, difference.recorded, difference.now);
}

// The first field that differs, and the names of the others that do.
void CompareFields(const Command& command, Part recorded, Part now, AnswerDifference& difference) {
  std::string others;
  for (const PlacedField& placed : FieldsOf(command)) {
    if (std::ranges::equal(BytesOf(placed, recorded), BytesOf(placed, now))) continue;
    if (difference.field.empty()) {
      difference.field = placed.field.name;
      difference.recorded = InWords(command, placed, recorded);
      difference.now = InWords(command, placed, now);
      difference.text += FieldLine(placed, difference);
    } else {
      others += (others.empty() ? "" : ", ") + std::string(placed.field.name);
    }
  }
  if (!others.empty()) difference.text += "\n  also different: " + others;
}

}  // namespace

AnswerDifference ExplainDifference(Part sent, Part recorded, Part now) {
  AnswerDifference difference;
  const auto [was, came] = std::ranges::mismatch(recorded, now);
  const auto place = static_cast<std::size_t>(was - recorded.begin());
  const std::string what = came == now.end() ? "nothing more came" : fmt::format("{:02X} came", *came);
  difference.text = now.empty()
                        ? fmt::format("no answer, where one of {} bytes was recorded", recorded.size())
                        : fmt::format("answer byte {} was {:02X}, now {}", place, *was, what);
  if (const Command* command = CommandOf(sent)) {
    difference.command = command->name;
    CompareFields(*command, recorded, now, difference);
  }
  difference.text += fmt::format("\n  sent:     {}\n  recorded: {}\n  now:      {}", HexOrNone(sent),
                                 HexOrNone(recorded), HexOrNone(now));
  return difference;
}

AnswerDifference ExplainExtra(Part sent, Part recorded, Part extra) {
  AnswerDifference difference;
  const Command* command = CommandOf(sent);
  if (command != nullptr) difference.command = command->name;
  if (command != nullptr && recorded.empty() && extra.size() == AnswerSize(command->answer)) {
    difference.text = "an answer, where none was recorded";
    for (const PlacedField& placed : FieldsOf(*command)) {
      if (placed.field.form == protocol::Form::Unused) continue;
      const std::string words = InWords(*command, placed, extra);
      difference.text += fmt::format("\n  field \"{}\": {}", placed.field.name, words);
      if (!difference.field.empty()) continue;
      difference.field = placed.field.name;
      difference.now = words;
    }
  } else {
    difference.text = fmt::format("{} bytes more came than was recorded", extra.size());
    if (command != nullptr) {
      difference.text +=
          fmt::format("\n  the answer to \"{}\" has {} bytes", command->name, AnswerSize(command->answer));
    }
  }
  difference.text += fmt::format("\n  sent:     {}\n  recorded: {}\n  more:     {}", HexOrNone(sent),
                                 HexOrNone(recorded), HexOrNone(extra));
  return difference;
}

}  // namespace station
