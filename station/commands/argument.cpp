#include "station/commands/argument.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <chrono>
#include <cmath>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <stdexcept>

#include "posix/nearest_words.h"
#include "station/commands/errors.h"

namespace station {

namespace {

Argument Plain(Argument::Kind kind, std::size_t size, std::string name, std::string help) {
  Argument argument{};
  argument.kind = kind;
  argument.size = size;
  argument.name = std::move(name);
  argument.help = std::move(help);
  argument.positional = true;
  return argument;
}

[[noreturn]] void Refuse(const Argument& argument, const std::string& text, const std::string& wanted) {
  throw UsageError(fmt::format("{}: '{}' is not {}", argument.name, text, wanted));
}

// "colour: '-1' is not off, or a number from 0 to 7".
[[noreturn]] void RefuseValue(const Argument& argument, const std::string& text) {
  std::vector<std::string> names;
  for (const Choice& choice : argument.choices) names.emplace_back(choice.name);
  std::string wanted = fmt::format("{}", fmt::join(names, ", "));
  if (argument.only_choices) {
    wanted = "one of " + wanted;
  } else {
    const std::string range = RangeText(argument.range);
    wanted += fmt::format("{}a number {}{}", names.empty() ? "" : ", or ",
                          range.empty() ? "of at most 32 bits" : "from ", range);
  }
  Refuse(argument, text, wanted + posix::DidYouMean(text, names));
}

std::string ChoiceNames(const Argument& argument) {
  std::string names;
  for (const Choice& choice : argument.choices)
    names += names.empty() ? choice.name : fmt::format(", {}", choice.name);
  return names;
}

bool IsChoice(const Argument& argument, const std::string& text) {
  return std::ranges::find(argument.choices, text, &Choice::name) != argument.choices.end();
}

// What the number counts: 1 for the range's steps, more for the device's finer ones, 0 if it is out of range.
std::int32_t Fineness(const protocol::Range& range, std::int64_t number) {
  for (const std::int32_t finer : {1, range.other.finer}) {
    if (number >= range.lowest * finer && number <= range.highest * finer) return finer;
  }
  return 0;
}

bool InRange(const protocol::Range& range, std::int64_t number) {
  return !IsStated(range) || Fineness(range, number) != 0;
}

std::optional<std::int64_t> ParseNumber(std::string_view text) {
  const bool negative = text.starts_with('-');
  if (negative) text.remove_prefix(1);
  const bool hexadecimal = text.starts_with("0x") || text.starts_with("0X");
  if (hexadecimal) text.remove_prefix(2);
  std::uint64_t value = 0;
  const auto [end, error] =
      std::from_chars(text.data(), text.data() + text.size(), value, hexadecimal ? 16 : 10);
  if (error != std::errc{} || end != text.data() + text.size() || value > 0xFFFFFFFF) return std::nullopt;
  const std::int64_t number = negative ? -static_cast<std::int64_t>(value) : static_cast<std::int64_t>(value);
  // One word holds either reading, signed or unsigned.
  if (number < INT32_MIN) return std::nullopt;
  return number;
}

bool RemoveUnit(std::string_view& text, std::string_view unit) {
  if (unit.empty() || !text.ends_with(unit)) return false;
  text.remove_suffix(unit.size());
  if (text.ends_with(' ')) text.remove_suffix(1);
  return true;
}

// The steps of a number, rounded: "98.5" or "98.5 MHz" in the range's, "98500 kHz" in the finer ones.
std::optional<std::int64_t> ParseUnits(std::string_view text, const protocol::Range& range) {
  if (!RemoveUnit(text, range.unit)) RemoveUnit(text, range.other.unit);
  double units = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), units);
  const double steps = units * range.steps;
  if (error != std::errc{} || end != text.data() + text.size()) return std::nullopt;
  if (!(std::abs(steps) <= INT32_MAX)) return std::nullopt;
  return std::llround(steps);
}

Bytes EncodeAddress(const Argument& argument, const std::string& text) {
  const std::string wanted = "an address such as 00:11:22:AA:BB:CC";
  const bool spaced = text.size() == 17 && std::ranges::count(text, ':') + std::ranges::count(text, '-') == 5;
  if (!spaced && text.size() != 12) Refuse(argument, text, wanted);
  std::string digits = text;
  std::ranges::replace(digits, '-', ':');
  Bytes bytes;
  try {
    bytes = BytesFromHex(digits);
  } catch (const UsageError&) {
    Refuse(argument, text, wanted);
  }
  if (bytes.size() != 6) Refuse(argument, text, wanted);
  return bytes;
}

Bytes EncodeContent(const Argument& argument, const std::string& path) {
  // Only an ordinary file has a size: a device or pipe could have no end.
  std::error_code error;
  const std::uintmax_t size = std::filesystem::file_size(path, error);
  if (!error && size != argument.size) {
    throw UsageError(
        fmt::format("{}: {} holds {} bytes, but {} are needed", argument.name, path, size, argument.size));
  }
  Bytes bytes(argument.size);
  std::ifstream file;
  if (!error) file.open(path, std::ios::binary);
  if (!file.read(reinterpret_cast<char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()))) {
    throw UsageError(fmt::format("{}: cannot read {}", argument.name, path));
  }
  return bytes;
}

using MomentWords = std::array<int, std::size(protocol::MOMENT_PARTS)>;

MomentWords ParseMoment(const Argument& argument, const std::string& text) {
  if (text == "now") {
    const std::time_t now = std::time(nullptr);
    std::tm moment{};
    localtime_r(&now, &moment);
    return {moment.tm_year + 1900, moment.tm_mon + 1, moment.tm_mday,
            moment.tm_hour,        moment.tm_min,     moment.tm_sec};
  }
  // A "T" between date and time is the ISO 8601 form.
  std::string spaced = text;
  std::ranges::replace(spaced, 'T', ' ');
  MomentWords words{};
  char behind = 0;
  if (std::sscanf(spaced.c_str(), "%d-%d-%d %d:%d:%d%c", &words[0], &words[1], &words[2], &words[3],
                  &words[4], &words[5], &behind) != 6) {
    Refuse(argument, text, "a time such as \"2024-02-29 12:30:00\", nor \"now\"");
  }
  return words;
}

void CheckMoment(const Argument& argument, const std::string& text) {
  const MomentWords words = ParseMoment(argument, text);
  for (std::size_t i = 0; i < words.size(); ++i) {
    const auto& [name, range] = protocol::MOMENT_PARTS[i];
    if (InRange(range, words[i])) continue;
    throw UsageError(
        fmt::format("{}: the {} {} is outside {}", argument.name, name, words[i], RangeText(range)));
  }
  const std::chrono::year_month_day date{std::chrono::year(words[0]),
                                         std::chrono::month(static_cast<unsigned>(words[1])),
                                         std::chrono::day(static_cast<unsigned>(words[2]))};
  if (!date.ok())
    throw UsageError(fmt::format("{}: the calendar has no such day as '{}'", argument.name, text));
}

Bytes EncodeMoment(const Argument& argument, const std::string& text) {
  Bytes bytes;
  for (const int word : ParseMoment(argument, text)) AppendWord(bytes, static_cast<std::uint32_t>(word));
  return bytes;
}

Bytes EncodeCharacters(const Argument& argument, const std::string& text) {
  if (argument.kind == Argument::Kind::Digits) {
    const bool digits = std::ranges::all_of(text, [](char c) { return c >= '0' && c <= '9'; });
    if (!digits || text.size() != argument.size) {
      Refuse(argument, text, fmt::format("a number of {} digits", argument.size));
    }
  }
  if (text.size() > argument.size) {
    throw UsageError(
        fmt::format("{}: '{}' is longer than {} characters", argument.name, text, argument.size));
  }
  Bytes bytes(text.begin(), text.end());
  bytes.resize(argument.size);
  return bytes;
}

Bytes EncodeData(const Argument& argument, const std::string& text) {
  Bytes bytes = BytesFromHex(text);
  if (bytes.size() > argument.size) {
    throw UsageError(
        fmt::format("{}: {} bytes, but at most {} can be sent", argument.name, bytes.size(), argument.size));
  }
  bytes.resize(argument.size);
  return bytes;
}

Bytes Encode(const Argument& argument, const ArgumentValue& value) {
  switch (argument.kind) {
    case Argument::Kind::Ignored:
      return Bytes(argument.size);
    case Argument::Kind::Number: {
      Bytes bytes;
      AppendWord(bytes, static_cast<std::uint32_t>(NumberOf(argument, value)));
      return bytes;
    }
    case Argument::Kind::Text:
    case Argument::Kind::Digits:
      return EncodeCharacters(argument, TextOf(value));
    case Argument::Kind::Address:
      return EncodeAddress(argument, TextOf(value));
    case Argument::Kind::Data:
      return EncodeData(argument, TextOf(value));
    case Argument::Kind::Content:
      return EncodeContent(argument, TextOf(value));
    case Argument::Kind::Moment:
      return EncodeMoment(argument, TextOf(value));
    case Argument::Kind::Word:
    case Argument::Kind::Flag:
      return {};
  }
  return {};
}

// Null for an empty name too: it is the name of every argument that is never given.
const Argument* FindArgument(const std::vector<Argument>& all, std::string_view name) {
  if (name.empty()) return nullptr;
  const auto found = std::ranges::find(all, name, &Argument::name);
  return found == all.end() ? nullptr : &*found;
}

}  // namespace

Argument Argument::Optional(std::string text) const {
  return OptionalPositional(std::move(text)).Named();
}

Argument Argument::OptionalPositional(std::string text) const {
  Argument changed = *this;
  changed.fallback = std::move(text);
  return changed;
}

Argument Argument::Named() const {
  Argument changed = *this;
  changed.positional = false;
  return changed;
}

Argument Argument::SameAs(std::string other) const {
  Argument changed = Named();
  changed.same_as = std::move(other);
  return changed;
}

Argument Argument::LengthOf(std::string other) const {
  Argument changed = Named();
  changed.length_of = std::move(other);
  return changed;
}

Argument Argument::Choices(std::vector<Choice> words) const {
  Argument changed = *this;
  changed.choices = std::move(words);
  return changed;
}

Argument Argument::OnlyChoices(std::vector<Choice> words) const {
  Argument changed = Choices(std::move(words));
  changed.only_choices = true;
  return changed;
}

Argument Argument::Within(protocol::Range values) const {
  Argument changed = *this;
  changed.range = values;
  return changed;
}

Argument ArgumentFor(const protocol::Field& field) {
  using protocol::Form;
  const auto kind = [form = field.form] {
    switch (form) {
      case Form::Unused:
        return Argument::Kind::Ignored;
      case Form::Text:
        return Argument::Kind::Text;
      case Form::Digits:
        return Argument::Kind::Digits;
      case Form::Address:
        return Argument::Kind::Address;
      case Form::Block:
        return Argument::Kind::Data;
      case Form::Moment:
        return Argument::Kind::Moment;
      default:
        return Argument::Kind::Number;
    }
  }();
  Argument argument = Plain(kind, field.size, field.name, field.meaning);
  argument.choices.assign(field.choices.begin(), field.choices.end());
  argument.only_choices = field.only_choices;
  argument.range = field.range;
  argument.may_insist = field.only_choices || IsStated(field.range) || kind == Argument::Kind::Moment;
  return argument;
}

Argument ArgumentFor(std::span<const protocol::Field> fields, std::string_view name) {
  const auto field = std::ranges::find(fields, name, &protocol::Field::name);
  if (field == fields.end()) throw std::logic_error(fmt::format("no field {}", name));
  return ArgumentFor(*field);
}

Argument Number(std::string name, std::string help) {
  return Plain(Argument::Kind::Number, 4, std::move(name), std::move(help));
}

Argument Text(std::string name, std::size_t size, std::string help) {
  return Plain(Argument::Kind::Text, size, std::move(name), std::move(help));
}

Argument Content(std::string name, std::size_t size, std::string help) {
  return Plain(Argument::Kind::Content, size, std::move(name), std::move(help));
}

Argument Word(std::string name, std::string help) {
  return Plain(Argument::Kind::Word, 0, std::move(name), std::move(help));
}

Argument Flag(std::string name, std::string help) {
  return Plain(Argument::Kind::Flag, 0, std::move(name), std::move(help)).Optional("false");
}

std::int64_t NumberOf(const Argument& argument, const ArgumentValue& value) {
  if (const auto* number = std::get_if<std::int64_t>(&value)) return *number;
  const std::string& text = std::get<std::string>(value);
  const auto choice = std::ranges::find(argument.choices, text, &Choice::name);
  if (choice != argument.choices.end()) return choice->value;
  const auto number = argument.range.steps == 1 ? ParseNumber(text) : ParseUnits(text, argument.range);
  if (number) return *number;
  RefuseValue(argument, text);
}

std::string TextOf(const ArgumentValue& value) {
  if (const auto* number = std::get_if<std::int64_t>(&value)) return std::to_string(*number);
  return std::get<std::string>(value);
}

void CheckArgument(const Argument& argument, const std::string& text, bool insisted) {
  using Kind = Argument::Kind;
  if (argument.kind == Kind::Word && argument.only_choices && !IsChoice(argument, text)) {
    RefuseValue(argument, text);
  }
  if (argument.kind == Kind::Flag && text != "true" && text != "false") {
    Refuse(argument, text, "true or false");
  }
  Encode(argument, text);
  if (insisted && argument.may_insist) return;
  if (argument.kind == Kind::Moment) CheckMoment(argument, text);
  if (argument.kind != Kind::Number || IsChoice(argument, text)) return;
  const std::int64_t number = NumberOf(argument, text);
  const bool other = argument.only_choices &&
                     std::ranges::find(argument.choices, number, &Choice::value) == argument.choices.end();
  if (other || !InRange(argument.range, number)) RefuseValue(argument, text);
}

std::string RangeText(const protocol::Range& range) {
  if (!IsStated(range)) return "";
  return fmt::format("{} to {}{}{}", UnitsOf(range, range.lowest), UnitsOf(range, range.highest),
                     *range.unit != 0 ? " " : "", range.unit);
}

namespace {

std::string FinerText(const protocol::Range& range) {
  const protocol::FinerSteps& other = range.other;
  if (other.finer == 1) return "";
  return fmt::format("; \"NUMBER {0}\" for a device that counts in 1/{1} {0}", other.unit, range.steps);
}

}  // namespace

std::string AllowedText(const Argument& argument) {
  if (argument.kind == Argument::Kind::Moment) {
    return fmt::format("{} {}, or now", protocol::MOMENT_PARTS[0].name,
                       RangeText(protocol::MOMENT_PARTS[0].range));
  }
  const std::string range = RangeText(argument.range) + FinerText(argument.range);
  if (argument.choices.empty()) return range;
  if (argument.only_choices) return ChoiceNames(argument);
  return fmt::format("{}, or {}", ChoiceNames(argument), range.empty() ? "a number" : range);
}

double UnitsOf(const protocol::Range& range, std::int64_t number) {
  const double steps = static_cast<double>(range.steps) * std::max(Fineness(range, number), 1);
  // A tenth is what a person gave, if it is rounded to this step.
  const double exact = static_cast<double>(number) / steps;
  const double tenths = std::round(exact * 10) / 10;
  return std::llround(tenths * steps) == number ? tenths : exact;
}

ArgumentValue ValueOf(const std::vector<Argument>& all, const Argument& argument,
                      const ArgumentValues& given) {
  if (const auto found = given.find(argument.name); found != given.end()) return found->second;
  if (argument.fallback) return *argument.fallback;
  if (const Argument* other = FindArgument(all, argument.same_as)) return ValueOf(all, *other, given);
  if (const Argument* other = FindArgument(all, argument.length_of)) {
    return static_cast<std::int64_t>(BytesFromHex(TextOf(ValueOf(all, *other, given))).size());
  }
  throw UsageError(fmt::format("{} is missing", argument.name));
}

Bytes EncodeRequest(const std::vector<Argument>& request, const ArgumentValues& given) {
  Bytes bytes;
  for (const Argument& argument : request) {
    const bool asked = argument.kind != Argument::Kind::Ignored;
    const Bytes part = Encode(argument, asked ? ValueOf(request, argument, given) : ArgumentValue{});
    bytes.insert(bytes.end(), part.begin(), part.end());
  }
  return bytes;
}

std::string ValueForm(const Argument& argument) {
  switch (argument.kind) {
    case Argument::Kind::Number:
      return argument.only_choices ? "NAME" : "NUMBER";
    case Argument::Kind::Digits:
      return fmt::format("{} DIGITS", argument.size);
    case Argument::Kind::Address:
      return "AA:BB:CC:DD:EE:FF";
    case Argument::Kind::Data:
      return "HEX";
    case Argument::Kind::Content:
      return "FILE";
    case Argument::Kind::Moment:
      return "\"YYYY-MM-DD HH:MM:SS\"";
    default:
      return "TEXT";
  }
}

}  // namespace station
