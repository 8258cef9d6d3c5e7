#include <algorithm>
#include <charconv>

#include "station/line/record_pages.h"
#include "station/results/yield.h"

namespace station {

namespace {

using nlohmann::ordered_json;
using web::Refused;
using web::Visit;

// What a chart can show.
constexpr std::size_t MOST_POINTS = 400;
constexpr std::size_t MOST_STEPS = 12;

ordered_json Groups(Connection& connection, const RunFilter& filter, YieldBy by) {
  ordered_json groups = ordered_json::array();
  for (const YieldRow& row : Yields(connection, filter, by)) {
    if (row.phones == 0) continue;
    groups.push_back({{"name", row.group}, {"passed", row.passed}, {"failed", row.phones - row.passed}});
  }
  return groups;
}

// All plans together.
ordered_json Totals(Connection& connection, const RunFilter& filter) {
  YieldRow total;
  for (const YieldRow& row : Yields(connection, filter, YieldBy::Plan)) {
    total.runs += row.runs;
    total.phones += row.phones;
    total.passed += row.passed;
    total.first_tested += row.first_tested;
    total.first_passed += row.first_passed;
  }
  return {{"runs", total.runs},
          {"phones", total.phones},
          {"passed", total.passed},
          {"first_tested", total.first_tested},
          {"first_passed", total.first_passed}};
}

ordered_json Failing(Connection& connection, const RunFilter& filter) {
  ordered_json failing = ordered_json::array();
  for (const FailingStep& step : FailingSteps(connection, filter)) {
    if (failing.size() < MOST_STEPS) failing.push_back({{"step", step.name}, {"count", step.runs}});
  }
  return failing;
}

ordered_json OrNull(const std::optional<double>& value) {
  return value ? ordered_json(*value) : ordered_json();
}

ordered_json MeasurementJson(const MeasurementStatistics& one) {
  return {{"plan", one.plan},
          {"number", one.number},
          {"step", one.step},
          {"reading", one.reading},
          {"unit", one.unit},
          {"minimum", OrNull(one.minimum)},
          {"maximum", OrNull(one.maximum)},
          {"count", one.count},
          {"mean", one.mean},
          {"spread", OrNull(Spread(one))},
          {"cp", OrNull(Cp(one))},
          {"cpk", OrNull(Cpk(one))},
          {"few", one.count < ENOUGH_VALUES},
          {"definitions", one.definitions}};
}

// "3,17"
std::vector<std::int64_t> Definitions(const std::string& text) {
  std::vector<std::int64_t> numbers;
  const char* const end = text.data() + text.size();
  for (const char* at = text.data(); at < end; ++at) {
    std::int64_t number = 0;
    const auto read = std::from_chars(at, end, number);
    if (read.ec != std::errc{} || (read.ptr != end && *read.ptr != ','))
      throw Refused(400, "The measurement is not named by its numbers.");
    numbers.push_back(number);
    at = read.ptr;
  }
  return numbers;
}

ordered_json Points(Connection& connection, const Visit& visit) {
  ordered_json points = ordered_json::array();
  const std::vector<std::int64_t> definitions = Definitions(visit.Parameter("measurement"));
  for (const TrendPoint& point : Trend(connection, FilterOf(visit), definitions, MOST_POINTS)) {
    points.push_back({{"run", point.run},
                      {"phone", point.phone},
                      {"started", point.started},
                      {"value", point.value},
                      {"verdict", StoredVerdictWord(point.verdict)}});
  }
  std::reverse(points.begin(), points.end());
  return points;
}

}  // namespace

void ServeYield(web::PageServer& server, const ResultsStore& store) {
  server.Get("/yields", [&store](const Visit& visit) -> web::Reply {
    Connection connection = ConnectForPage(store);
    const RunFilter filter = FilterOf(visit);
    ordered_json json = Totals(connection, filter);
    json["plans"] = PlanNames(connection);
    json["stations"] = StationNames(connection);
    json["hours"] = Groups(connection, filter, YieldBy::Hour);
    json["days"] = Groups(connection, filter, YieldBy::Day);
    json["failing"] = Failing(connection, filter);
    json["measurements"] = ordered_json::array();
    for (const MeasurementStatistics& one : Statistics(connection, filter))
      json["measurements"].push_back(MeasurementJson(one));
    return JsonReply(json);
  });
  server.Get("/trend", [&store](const Visit& visit) -> web::Reply {
    Connection connection = ConnectForPage(store);
    return JsonReply(Points(connection, visit));
  });
}

}  // namespace station
