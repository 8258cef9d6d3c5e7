// The phone that is put into a slot, as the operator enters it: which values its test needs, which of them
// are there, and whether each is one that its field can have.
#pragma once

#include <map>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "station/plan/outline.h"

namespace station {

class ScannedPhone {
 public:
  struct Field {
    std::string name;
    std::string help;
    nlohmann::json checks;  // as a plan's variable declares them
  };

  // The plan must outlive it.
  explicit ScannedPhone(const PlanOutline& plan) : plan_(plan) {}

  // Another phone, of which nothing is known. The variables in `set` are not asked for.
  void Renew(const std::map<std::string, std::string>& set);

  // What is wrong with a serial number, or with the value of the next field, in a sentence; nothing if it is
  // right.
  std::string SerialFault(const std::string& value) const;
  std::string NextFault(const std::string& value) const;

  // Null if nothing is missing.
  const Field* Next() const;
  void EnterNext(const std::string& value);

  const std::string& Serial() const;
  // Why a phone that has passed is tested again; empty if that was not asked.
  std::string RetestReason() const;
  void AskRetestReason();
  void ForgetRetestReason();

  // What the plan is run with: `set`, and over it what was entered.
  std::map<std::string, std::string> PlanVariables(std::map<std::string, std::string> set) const;

  // [{"name", "value"}] of what was entered, and {"name", "help"} of what is missing next or null.
  nlohmann::ordered_json EnteredView() const;
  nlohmann::ordered_json NextView() const;

 private:
  nlohmann::json ChecksOfSerial() const;

  const PlanOutline& plan_;
  std::vector<Field> fields_;
  std::map<std::string, std::string> values_;
};

}  // namespace station
