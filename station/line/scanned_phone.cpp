#include "station/line/scanned_phone.h"

#include <algorithm>

#include "station/commands/clean_text.h"
#include "station/line/scan.h"

namespace station {

namespace {

using nlohmann::ordered_json;

constexpr const char* SERIAL = "serial number";
constexpr const char* RETEST_REASON = "reason for another test";

std::string WrongLabel(const std::string& field, const nlohmann::json& checks, const std::string& value) {
  const std::string wrong = WrongValue(field, checks, value);
  return wrong.empty() ? "" : wrong + ". Scan the right label.";
}

}  // namespace

void ScannedPhone::Renew(const std::map<std::string, std::string>& set) {
  values_.clear();
  fields_ = {{SERIAL, "on the phone's label", ChecksOfSerial()}};
  for (const PlanVariable& variable : plan_.variables) {
    const bool given = set.contains(variable.name) || variable.name == plan_.line.serial;
    if (variable.needed && !given) fields_.push_back({variable.name, variable.help, variable.declaration});
  }
}

// The variable that gets the serial number may have checks too.
nlohmann::json ScannedPhone::ChecksOfSerial() const {
  nlohmann::json checks = nlohmann::json::object();
  for (const PlanVariable& variable : plan_.variables) {
    if (variable.name == plan_.line.serial) checks = variable.declaration;
  }
  checks.update(SerialChecks(plan_.line));
  return checks;
}

std::string ScannedPhone::SerialFault(const std::string& value) const {
  return WrongLabel(SERIAL, ChecksOfSerial(), value);
}

std::string ScannedPhone::NextFault(const std::string& value) const {
  const Field& field = *Next();
  return WrongLabel(field.name, field.checks, value);
}

const ScannedPhone::Field* ScannedPhone::Next() const {
  const auto next =
      std::ranges::find_if(fields_, [this](const Field& field) { return !values_.contains(field.name); });
  return next == fields_.end() ? nullptr : &*next;
}

void ScannedPhone::EnterNext(const std::string& value) {
  values_[Next()->name] = value;
}

const std::string& ScannedPhone::Serial() const {
  return values_.at(SERIAL);
}

std::string ScannedPhone::RetestReason() const {
  const auto reason = values_.find(RETEST_REASON);
  return reason == values_.end() ? "" : reason->second;
}

void ScannedPhone::AskRetestReason() {
  fields_.push_back({RETEST_REASON, "this phone has passed this plan before", nlohmann::json::object()});
}

void ScannedPhone::ForgetRetestReason() {
  values_.erase(RETEST_REASON);
  std::erase_if(fields_, [](const Field& field) { return field.name == RETEST_REASON; });
}

std::map<std::string, std::string> ScannedPhone::PlanVariables(std::map<std::string, std::string> set) const {
  for (const auto& [name, value] : values_) {
    if (name != SERIAL && name != RETEST_REASON) set[name] = value;
  }
  if (!plan_.line.serial.empty()) set[plan_.line.serial] = Serial();
  return set;
}

ordered_json ScannedPhone::EnteredView() const {
  ordered_json entered = ordered_json::array();
  for (const Field& field : fields_) {
    if (!values_.contains(field.name)) continue;
    entered.push_back({{"name", field.name}, {"value", CleanText(values_.at(field.name))}});
  }
  return entered;
}

ordered_json ScannedPhone::NextView() const {
  const Field* next = Next();
  return next == nullptr ? ordered_json() : ordered_json{{"name", next->name}, {"help", next->help}};
}

}  // namespace station
