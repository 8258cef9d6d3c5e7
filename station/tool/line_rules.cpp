#include "station/tool/line_rules.h"

#include <fmt/format.h>

#include "station/line/results_store.h"
#include "station/line/route_check.h"
#include "station/plan/outline.h"
#include "station/plan/variable_checks.h"

namespace station {

namespace {

PlanOutline OutlineOf(const std::string& file) {
  try {
    return ReadPlanOutline(file);
  } catch (const PlanError&) {
    return {};  // LoadPlan tells all of its mistakes
  }
}

std::string SerialIn(const LineRules& rules, const PlanOrder& order) {
  const auto found = order.variables.find(rules.serial.empty() ? "serial" : rules.serial);
  return found == order.variables.end() ? "" : found->second;
}

void CheckSerial(const LineRules& rules, const std::string& serial) {
  if (serial.empty() && !rules.requires_plans.empty()) {
    throw PlanError(
        fmt::format("the plan is for phones that have passed “{}”, and a phone is known by its serial "
                    "number: give --set {}=NUMBER",
                    rules.requires_plans.front(), rules.serial.empty() ? "serial" : rules.serial));
  }
  if (serial.empty()) return;
  const std::string fault = VariableFault(SerialChecks(rules), serial);
  if (!fault.empty()) throw PlanError(fmt::format("“{}” is no serial number: {}", serial, fault));
}

}  // namespace

std::string SerialOf(const PlanOrder& order) {
  return SerialIn(OutlineOf(order.plan_file).line, order);
}

void CheckLineRules(const PlanOrder& order) {
  const PlanOutline outline = OutlineOf(order.plan_file);
  const std::string serial = SerialIn(outline.line, order);
  CheckSerial(outline.line, serial);
  const auto past = [&](const std::string& phone, const std::string& plan) {
    if (!order.results) throw StoreAway("no results are stored");
    return NewestRunIn(*order.results, phone, plan);
  };
  const std::string refusal = CheckRoute(outline.line, serial, past);
  if (!refusal.empty()) throw PlanError(refusal);
  if (!outline.line.asks_retest_reason || serial.empty() || !order.retest_reason.empty()) return;
  if (HasPassed(outline.name, serial, past)) {
    throw PlanError(
        fmt::format("Phone {} has passed “{}” before: give --retest-reason TEXT to test it again.", serial,
                    outline.name));
  }
}

}  // namespace station
