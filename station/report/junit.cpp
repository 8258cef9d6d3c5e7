#include <fmt/chrono.h>
#include <fmt/format.h>

#include "station/report/report.h"
#include "station/report/text.h"
#include "station/tool/output.h"

namespace station {

namespace {

double Seconds(std::chrono::microseconds time) {
  return static_cast<double>(time.count()) / 1e6;
}

// What the step found and what went over the link. Long answers are in the JSON report.
std::string SystemOut(const StepResult& step) {
  constexpr std::size_t MOST_EXCHANGES = 20;
  constexpr std::size_t MOST_BYTES = 64;
  std::string text = step.readings.empty() ? "" : ReadingsText(step.readings);
  for (std::size_t i = 0; i < step.exchanges.size() && i < MOST_EXCHANGES; ++i) {
    const Exchange& exchange = step.exchanges[i];
    const bool longer = exchange.received.size() > MOST_BYTES;
    const auto shown = std::span(exchange.received).first(longer ? MOST_BYTES : exchange.received.size());
    text += fmt::format("> {}\n< {}{}\n", HexText(exchange.sent), HexText(shown), longer ? " ..." : "");
  }
  return text;
}

std::string Case(const PlanResult& result, std::size_t number, const StepResult& step) {
  std::string xml = fmt::format("    <testcase name=\"{:02} {}\" classname=\"{}\" time=\"{:.3f}\">\n", number,
                                Escaped(step.name), Escaped(result.plan), Seconds(step.took));
  const std::string message = Escaped(step.message);
  if (step.verdict == Verdict::Skipped) xml += fmt::format("      <skipped message=\"{}\"/>\n", message);
  if (step.verdict == Verdict::Failed) {
    xml += fmt::format("      <failure message=\"{0}\" type=\"device\">{0}</failure>\n", message);
  }
  if (step.verdict == Verdict::NoLink || step.verdict == Verdict::PlanWrong) {
    xml += fmt::format("      <error message=\"{0}\" type=\"{1}\">{0}</error>\n", message,
                       step.verdict == Verdict::NoLink ? "link" : "plan");
  }
  const std::string output = SystemOut(step);
  if (!output.empty()) xml += fmt::format("      <system-out>{}</system-out>\n", Escaped(output));
  return xml + "    </testcase>\n";
}

}  // namespace

std::string ReportJunit(const PlanResult& result) {
  const std::size_t errors = CountVerdict(result, Verdict::NoLink) + CountVerdict(result, Verdict::PlanWrong);
  const std::string counts =
      fmt::format("tests=\"{}\" failures=\"{}\" errors=\"{}\" skipped=\"{}\" time=\"{:.3f}\"",
                  result.steps.size(), CountVerdict(result, Verdict::Failed), errors,
                  CountVerdict(result, Verdict::Skipped), Seconds(result.took));
  std::string xml = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<testsuites>\n";
  xml += fmt::format("  <testsuite name=\"{}\" {} timestamp=\"{:%Y-%m-%dT%H:%M:%S}\" hostname=\"{}\">\n",
                     Escaped(result.plan), counts, fmt::gmtime(result.started),
                     Escaped(PortFileName(result.port)));
  xml += "    <properties>\n";
  xml += fmt::format("      <property name=\"port\" value=\"{}\"/>\n", Escaped(result.port));
  for (const auto& [name, value] : result.variables) {
    xml += fmt::format("      <property name=\"{}\" value=\"{}\"/>\n", Escaped(name), Escaped(value));
  }
  xml += "    </properties>\n";
  for (std::size_t i = 0; i < result.steps.size(); ++i) xml += Case(result, i + 1, result.steps[i]);
  return xml + "  </testsuite>\n</testsuites>\n";
}

}  // namespace station
