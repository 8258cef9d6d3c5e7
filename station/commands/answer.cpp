#include "station/commands/answer.h"

#include <fmt/format.h>

#include <algorithm>

#include "station/commands/argument.h"
#include "station/commands/names.h"

namespace station {

namespace {

using protocol::Form;

std::string Characters(std::span<const std::uint8_t> bytes) {
  std::string text;
  for (const std::uint8_t byte : bytes) text += byte >= 0x20 && byte <= 0x7E ? static_cast<char>(byte) : '.';
  return text;
}

// Rows of sixteen bytes with their offsets, for blocks that do not fit a line.
std::string HexBlock(std::span<const std::uint8_t> bytes) {
  if (bytes.size() <= 32) return HexText(bytes);
  std::string block;
  for (std::size_t offset = 0; offset < bytes.size(); offset += 16) {
    const auto row = bytes.subspan(offset, std::min<std::size_t>(16, bytes.size() - offset));
    block += fmt::format("\n  {:03X}  {:<47}  {}", offset, HexText(row), Characters(row));
  }
  return block;
}

std::string MomentText(std::span<const std::uint8_t> bytes) {
  return fmt::format("{:04}-{:02}-{:02} {:02}:{:02}:{:02}", WordAt(bytes, 0), WordAt(bytes, 4),
                     WordAt(bytes, 8), WordAt(bytes, 12), WordAt(bytes, 16), WordAt(bytes, 20));
}

void ReadKey(std::uint32_t code, std::vector<Reading>& readings) {
  const bool fresh = code != 0 && (code & 0xFF) != REMEMBERED_KEY;
  const std::string hex = fmt::format("0x{:04X}", code);
  readings.push_back({"key", KeyName(code), KeyName(code)});
  readings.push_back({"code", code, hex});
  readings.push_back({"new", fresh, fresh ? "yes" : "no"});
}

void ReadCrosses(std::uint32_t crosses, std::vector<Reading>& readings) {
  const std::vector<std::string> left = CrossNames(crosses);
  readings.push_back({"crosses", crosses, fmt::format("0x{:02X}", crosses)});
  readings.push_back({"left", left, left.empty() ? "none" : fmt::format("{}", fmt::join(left, ", "))});
}

void ReadField(const protocol::Field& field, std::span<const std::uint8_t> bytes,
               std::vector<Reading>& readings) {
  const auto add = [&](nlohmann::ordered_json value, std::string text) {
    readings.push_back({field.name, std::move(value), std::move(text), field.range.unit});
  };
  switch (field.form) {
    case Form::Status: {
      // 0 says only that it went well, as the exit status does.
      const auto status = static_cast<std::int32_t>(WordAt(bytes, 0));
      if (status != 0) add(status, std::to_string(status));
      break;
    }
    case Form::Key:
      ReadKey(WordAt(bytes, 0), readings);
      break;
    case Form::Crosses:
      ReadCrosses(WordAt(bytes, 0), readings);
      break;
    case Form::Count:
    case Form::Length:
    case Form::Number:
      if (field.range.steps != 1) {
        const double units = UnitsOf(field.range, WordAt(bytes, 0));
        add(units, fmt::format("{}", units));
        break;
      }
      add(WordAt(bytes, 0), std::to_string(WordAt(bytes, 0)));
      break;
    case Form::Integer: {
      const auto number = static_cast<std::int32_t>(WordAt(bytes, 0));
      add(number, std::to_string(number));
      break;
    }
    case Form::Digits:
    case Form::Text: {
      const auto end = std::ranges::find(bytes, std::uint8_t{0});
      const std::string text = PrintableText({bytes.begin(), end});
      add(text, text);
      break;
    }
    case Form::Block:
      add(HexText(bytes, ""), HexBlock(bytes));
      break;
    case Form::Address:
      add(HexText(bytes, ":"), HexText(bytes, ":"));
      break;
    case Form::Moment:
      add(MomentText(bytes), MomentText(bytes));
      break;
    case Form::Alive:
    case Form::Unused:
    case Form::Constant:
      break;
  }
}

bool CountsBytes(const protocol::Field& field) {
  return field.form == Form::Count || field.form == Form::Length;
}

}  // namespace

std::size_t AnswerSize(const std::vector<protocol::Field>& layout) {
  std::size_t size = 0;
  for (const protocol::Field& field : layout) size += field.size;
  return size;
}

std::optional<std::int32_t> AnswerStatus(const std::vector<protocol::Field>& layout,
                                         std::span<const std::uint8_t> bytes) {
  if (layout.empty() || bytes.size() < 4) return std::nullopt;
  return static_cast<std::int32_t>(WordAt(bytes, 0));
}

std::vector<Reading> DecodeAnswer(const std::vector<protocol::Field>& layout,
                                  std::span<const std::uint8_t> bytes) {
  std::vector<Reading> readings;
  std::optional<std::size_t> counted;
  std::size_t offset = 0;
  for (const protocol::Field& field : layout) {
    std::span<const std::uint8_t> part = bytes.subspan(offset, field.size);
    if (field.form == Form::Block && counted) {
      part = part.first(std::min(*counted, part.size()));
    }
    ReadField(field, part, readings);
    if (CountsBytes(field)) counted = WordAt(part, 0);
    offset += field.size;
  }
  return readings;
}

std::vector<ReadingKind> KindsOf(const std::vector<Reading>& examples) {
  std::vector<ReadingKind> kinds;
  for (const Reading& example : examples) {
    const ReadingKind::Value value = example.value.is_number()    ? ReadingKind::Value::Number
                                     : example.value.is_boolean() ? ReadingKind::Value::YesNo
                                     : example.value.is_string()  ? ReadingKind::Value::Text
                                                                  : ReadingKind::Value::List;
    kinds.push_back({example.name, example.unit, value});
  }
  return kinds;
}

std::vector<ReadingKind> AnswerKinds(const std::vector<protocol::Field>& layout) {
  // Which readings there are does not depend on the bytes, except that a status of 0 is not shown.
  return KindsOf(DecodeAnswer(layout, Bytes(AnswerSize(layout), 1)));
}

}  // namespace station
