#include <fmt/chrono.h>
#include <fmt/format.h>

#include <map>
#include <pugixml.hpp>
#include <sstream>

#include "station/commands/clean_text.h"
#include "station/report/phone_facts.h"
#include "station/report/report.h"

namespace station {

namespace {

void Set(pugi::xml_node node, const char* name, const std::string& value) {
  node.append_attribute(name) = CleanText(value).c_str();
}

void SetTime(pugi::xml_node node, std::chrono::microseconds time) {
  Set(node, "time", fmt::format("{:.3f}", static_cast<double>(time.count()) / 1e6));
}

// The readings of the step and the bytes on the link. Long answers are only in the JSON report.
std::string SystemOut(const StepResult& step) {
  constexpr std::size_t MOST_EXCHANGES = 20;
  constexpr std::size_t MOST_BYTES = 64;
  std::string text = step.readings.empty() ? "" : ReadingsText(step.readings);
  for (const JudgedLimit& limit : step.limits) {
    text += fmt::format("{} must be {}: {}\n", limit.reading, limit.text, VerdictText(limit.verdict));
  }
  for (std::size_t i = 0; i < step.transcript.kept.size() && i < MOST_EXCHANGES; ++i) {
    const Exchange& exchange = step.transcript.kept[i];
    const bool longer = exchange.received.size() > MOST_BYTES;
    const auto shown = std::span(exchange.received).first(longer ? MOST_BYTES : exchange.received.size());
    text += fmt::format("> {}\n< {}{}\n", HexText(exchange.sent), HexText(shown), longer ? " ..." : "");
  }
  return text;
}

void AddProperty(pugi::xml_node properties, const std::string& name, const std::string& value) {
  pugi::xml_node property = properties.append_child("property");
  Set(property, "name", name);
  Set(property, "value", value);
}

void AddProperties(pugi::xml_node properties, const PlanResult& result) {
  const auto add = [&](const std::string& name, const std::string& value) {
    if (!value.empty()) AddProperty(properties, name, value);
  };
  const PhoneFacts facts = FactsOfPhone(result);
  add("verdict", VerdictText(result.verdict));
  add("phone-identity", facts.identity);
  for (const auto& [name, text] : facts.versions) add("phone-version-" + name, text);
  add("station", result.origin.station);
  add("operator", result.origin.person);
  add("tool-version", result.origin.tool_version);
  add("plan-file", result.plan_file);
  add("plan-sha256", result.plan_sha256);
  add("started", TimeText(result.started));
  add("ended", TimeText(result.ended));
  add("port", result.port);
  add("slot", result.slot);
  for (const auto& [name, value] : result.variables) AddProperty(properties, "variable-" + name, value);
}

void AddProblem(pugi::xml_node testcase, const char* kind, const char* type, const std::string& message) {
  pugi::xml_node problem = testcase.append_child(kind);
  Set(problem, "message", message);
  Set(problem, "type", type);
  problem.text() = CleanText(message).c_str();
}

void AddCase(pugi::xml_node suite, const PlanResult& result, const std::string& name,
             const StepResult& step) {
  pugi::xml_node testcase = suite.append_child("testcase");
  Set(testcase, "name", name);
  Set(testcase, "classname", result.plan);
  SetTime(testcase, step.took);
  if (step.verdict == Verdict::Skipped) Set(testcase.append_child("skipped"), "message", step.message);
  if (step.verdict == Verdict::Failed) AddProblem(testcase, "failure", "device", step.message);
  if (step.verdict == Verdict::NoLink) AddProblem(testcase, "error", "link", step.message);
  if (step.verdict == Verdict::PlanWrong) AddProblem(testcase, "error", "plan", step.message);
  if (step.verdict == Verdict::Aborted) AddProblem(testcase, "error", "aborted", step.message);
  if (step.verdict == Verdict::OutputLost) AddProblem(testcase, "error", "output", step.message);
  const std::string output = SystemOut(step);
  if (!output.empty()) testcase.append_child("system-out").text() = CleanText(output).c_str();
}

}  // namespace

std::string ReportJunit(const PlanResult& result) {
  pugi::xml_document document;
  pugi::xml_node declaration = document.append_child(pugi::node_declaration);
  Set(declaration, "version", "1.0");
  Set(declaration, "encoding", "UTF-8");
  pugi::xml_node suite = document.append_child("testsuites").append_child("testsuite");
  Set(suite, "name", result.plan);
  const auto count = [&](const char* name, std::size_t number) { Set(suite, name, std::to_string(number)); };
  count("tests", result.steps.size());
  count("failures", CountVerdict(result, Verdict::Failed));
  count("errors", CountVerdict(result, Verdict::NoLink) + CountVerdict(result, Verdict::PlanWrong) +
                      CountVerdict(result, Verdict::Aborted) + CountVerdict(result, Verdict::OutputLost));
  count("skipped", CountVerdict(result, Verdict::Skipped));
  SetTime(suite, result.took);
  Set(suite, "timestamp", fmt::format("{:%Y-%m-%dT%H:%M:%S}", fmt::gmtime(result.started)));
  Set(suite, "hostname", result.origin.station);
  AddProperties(suite.append_child("properties"), result);
  // Without the step's number, so that a case keeps its history when a step is inserted before it.
  std::map<std::string, int> seen;
  for (const StepResult& step : result.steps) {
    const int times = ++seen[step.name];
    AddCase(suite, result, times == 1 ? step.name : fmt::format("{} ({})", step.name, times), step);
  }
  std::ostringstream text;
  document.save(text, "  ");
  return text.str();
}

}  // namespace station
