#include "simulator/models/exchange_log.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstring>
#include <nlohmann/json.hpp>
#include <span>

#include "posix/hex.h"

namespace simulator {
namespace {

using protocol::CommandDescription;

using protocol::Form;
using JsonValue = nlohmann::ordered_json;

constexpr size_t CODE_SIZE = 4;
constexpr size_t SHOWN_BLOCK = 64;

const CommandDescription* CommandOf(uint32_t code) {
  const auto found = std::ranges::find(protocol::COMMANDS, code, &CommandDescription::code);
  return found == protocol::COMMANDS.end() ? nullptr : &*found;
}

uint32_t WordAt(std::string_view bytes) {
  uint32_t word = 0;
  memcpy(&word, bytes.data(), std::min(bytes.size(), sizeof word));
  return word;
}

std::string Hex(std::string_view bytes) {
  const auto* start = reinterpret_cast<const uint8_t*>(bytes.data());
  return posix::HexText({start, bytes.size()});
}

std::string ShortHex(std::string_view bytes) {
  const bool whole = bytes.size() <= SHOWN_BLOCK;
  return Hex(bytes.substr(0, SHOWN_BLOCK)) + (whole ? "" : fmt::format("… ({} bytes)", bytes.size()));
}

std::string Printable(std::string_view bytes) {
  std::string text(bytes.substr(0, bytes.find('\0')));
  for (char& character : text) {
    if (character < 0x20 || character > 0x7E) character = '.';
  }
  return text;
}

std::string NumberText(const protocol::Field& field, uint32_t word) {
  for (const protocol::Choice& choice : field.choices) {
    if (choice.value == static_cast<int64_t>(word)) return fmt::format("{} ({})", word, choice.name);
  }
  const std::string unit = field.range.unit;
  return fmt::format("{}{}{}", word, unit.empty() ? "" : " ", unit);
}

std::string KeyText(uint32_t code) {
  for (const KeypadKey& key : KEYPAD_KEYS) {
    if (code >> 8 == key.code) return fmt::format("0x{:04X} ({})", code, key.name);
  }
  return fmt::format("0x{:04X}", code);
}

std::string ValueText(const protocol::Field& field, std::string_view bytes) {
  const uint32_t word = WordAt(bytes);
  switch (field.form) {
    case Form::Number:
    case Form::Length:
      return NumberText(field, word);
    case Form::Status:
    case Form::Alive:
    case Form::Count:
    case Form::Integer:
    case Form::Constant:
      return bytes.size() == sizeof word ? std::to_string(static_cast<int32_t>(word)) : ShortHex(bytes);
    case Form::Key:
      return KeyText(word);
    case Form::Crosses:
      return fmt::format("0x{:02X}", word);
    case Form::Text:
    case Form::Digits:
      return Printable(bytes);
    case Form::Moment:
      return fmt::format("{:04}-{:02}-{:02} {:02}:{:02}:{:02}", word, WordAt(bytes.substr(4)),
                         WordAt(bytes.substr(8)), WordAt(bytes.substr(12)), WordAt(bytes.substr(16)),
                         WordAt(bytes.substr(20)));
    case Form::Block:
    case Form::Address:
    case Form::Unused:
      return ShortHex(bytes);
  }
  return {};
}

// The fields as far as there are bytes for them.
void AddFields(JsonValue& list, std::span<const protocol::Field> fields, std::string_view bytes) {
  for (const protocol::Field& field : fields) {
    if (bytes.size() < field.size) return;
    const std::string_view part = bytes.substr(0, field.size);
    bytes.remove_prefix(field.size);
    if (field.form == Form::Unused) continue;
    list.push_back({{"name", field.name}, {"value", ValueText(field, part)}, {"meaning", field.meaning}});
  }
}

// What a negative first word means, for this command or for all.
std::string StatusText(const CommandDescription& command, int32_t status) {
  for (const protocol::StatusMeaning& row : command.statuses) {
    if (row.status == status) return row.meaning;
  }
  for (const ResultCode& row : RESULT_CODE_TABLE) {
    if (row.code == status) return row.meaning;
  }
  return {};
}

}  // namespace

bool ExchangeLog::IsAsked() const {
  const Exchange& last = exchanges_.back();
  return last.command != nullptr && last.request.size() == protocol::RequestSize(*last.command);
}

bool ExchangeLog::IsAnswered() const {
  const Exchange& last = exchanges_.back();
  return last.command != nullptr && last.answer.size() == protocol::AnswerSize(*last.command);
}

void ExchangeLog::Take(bool from_phone, std::string_view bytes) {
  if (!from_phone) return TakeRequest(bytes);
  if (!open_) return;
  Exchange& last = exchanges_.back();
  if (last.command == nullptr) return;
  const size_t wanted = protocol::AnswerSize(*last.command) - last.answer.size();
  last.answer += bytes.substr(0, wanted);
  last.answered = journal_.Now();
  open_ = !IsAnswered();
}

void ExchangeLog::TakeRequest(std::string_view bytes) {
  while (!bytes.empty()) {
    // A host that asks again does not wait for the answer any more.
    if (open_ && IsAsked()) open_ = false;
    if (!open_) {
      const size_t taken = std::min(bytes.size(), CODE_SIZE - code_.size());
      code_ += bytes.substr(0, taken);
      bytes.remove_prefix(taken);
      if (code_.size() == CODE_SIZE) Begin(WordAt(std::exchange(code_, {})));
      continue;
    }
    Exchange& last = exchanges_.back();
    const size_t taken =
        std::min<size_t>(bytes.size(), protocol::RequestSize(*last.command) - last.request.size());
    last.request += bytes.substr(0, taken);
    bytes.remove_prefix(taken);
  }
}

void ExchangeLog::Begin(uint32_t code) {
  exchanges_.push_back({.number = ++last_number_,
                        .time = journal_.Now(),
                        .command = CommandOf(code),
                        .code = code,
                        .request = {},
                        .answer = {}});
  if (exchanges_.size() > MOST_EXCHANGES) exchanges_.pop_front();
  open_ = exchanges_.back().command != nullptr;
}

void ExchangeLog::Restart() {
  open_ = false;
  code_.clear();
}

std::string ExchangeLog::AsJson(int since) const {
  JsonValue list = JsonValue::array();
  for (const Exchange& exchange : exchanges_) {
    if (exchange.number <= since) continue;
    const auto seconds = [](std::chrono::microseconds time) {
      return std::chrono::duration<double>(time).count();
    };
    JsonValue row = {{"number", exchange.number}, {"time", seconds(exchange.time)}, {"code", exchange.code}};
    if (const CommandDescription* command = exchange.command) {
      row["name"] = command->name;
      row["action"] = command->action;
      row["whole"] = exchange.answer.size() == protocol::AnswerSize(*command);
      row["request"] = {{"bytes", ShortHex(exchange.request)}, {"fields", JsonValue::array()}};
      AddFields(row["request"]["fields"], command->request, exchange.request);
      JsonValue answer = {{"bytes", ShortHex(exchange.answer)}, {"fields", JsonValue::array()}};
      AddFields(answer["fields"], {&command->first_word, 1}, exchange.answer);
      if (exchange.answer.size() > command->first_word.size) {
        AddFields(answer["fields"], command->data,
                  std::string_view(exchange.answer).substr(command->first_word.size));
      }
      const auto status = static_cast<int32_t>(WordAt(exchange.answer));
      if (!exchange.answer.empty()) {
        row["milliseconds"] = seconds(exchange.answered - exchange.time) * 1000;
        row["failed"] = status < 0;
        if (status < 0) row["status_meaning"] = StatusText(*command, status);
      }
      row["answer"] = std::move(answer);
    }
    list.push_back(std::move(row));
  }
  return list.dump(-1, ' ', false, JsonValue::error_handler_t::replace) + "\n";
}

}  // namespace simulator
