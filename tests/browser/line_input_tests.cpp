// What an operator types and chooses on the line's pages: the keys that answer a question, and the
// measurement whose charts are shown.
#include "tests/browser/line_page_test.h"

namespace {

using browser::Json;

// Each case is what is typed at an open question: keys with what the field then holds.
constexpr char TYPED[] = R"(
  const [open, keys, enter] = arguments;
  document.querySelector('main').innerHTML =
    '<form id="scan-form"><input id="scan"></form><input id="person"><input id="other">';
  const done = [];
  return import('/operator.js').then(async ({watchScans}) => {
    const field = document.querySelector('#scan');
    watchScans({openQuestion: () => (open ? {slot: 'A', number: 1} : null),
      answer: (question, reply) => done.push(reply), sendScan: (text) => done.push(`scan ${text}`)});
    for (const {at = 'scan', value, ...key} of keys) {
      document.querySelector(`#${at}`).focus();
      document.activeElement.dispatchEvent(new KeyboardEvent('keydown', {bubbles: true, ...key}));
      document.activeElement.value = value ?? '';
      await new Promise((next) => setTimeout(next, 50));  // as a slow scanner
    }
    if (enter) document.querySelector('#scan-form').requestSubmit();
    // Timers end in the order of their times: an answer would be there by now.
    await new Promise((over) => setTimeout(over, 400));
    return [...done, field.value].join(', ');
  }))";

TEST_F(LinePageTest, OnlyALetterAloneAnswersAQuestion) {
  const struct {
    bool open;
    const char* keys;
    bool enter;
    std::string done;  // and what is left in the field
  } cases[] = {{true, R"([{"key": "p", "value": "p"}])", false, "pass, "},
               {true, R"([{"key": "F", "value": "F"}])", false, "fail, "},
               {true, R"([{"key": "x", "value": "x"}])", false, "x"},
               {false, R"([{"key": "p", "value": "p"}])", false, "p"},
               // A key that is still held down from the question before.
               {true, R"([{"key": "p", "repeat": true, "value": "p"}])", false, "p"},
               {true, R"([{"key": "p", "ctrlKey": true, "value": "p"}])", false, "p"},
               {true, R"([{"key": "p", "altKey": true, "value": "p"}])", false, "p"},
               {true, R"([{"key": "p", "metaKey": true, "value": "p"}])", false, "p"},
               {true, R"([{"key": "p", "at": "other", "value": "p"}])", false, ""},
               // Scans that begin with the letter.
               {true, R"([{"key": "p", "value": "p"}, {"key": "S", "value": "pS"}])", false, "pS"},
               {true, R"([{"key": "p", "value": "pasted"}])", false, "pasted"},
               {true, R"([{"key": "p", "value": "p"}, {"key": "1", "value": "p1"}])", true, "scan p1, "},
               {true, R"([{"key": "p", "value": "p"}])", true, "scan p, "}};
  for (const auto& [open, keys, enter, done] : cases) {
    // Each has a page of its own: the listeners stay.
    Go("/settings.html", "#station div");
    EXPECT_EQ(done, page_.Run(TYPED, {open, Json::parse(keys), enter})) << keys << enter;
  }
}

TEST_F(LinePageTest, TheChosenMeasurementStaysWhileRunsCome) {
  Go("/yield.html", "#tiles .tile");
  page_.Await("return document.querySelector('#spread').textContent !== ''", "the empty page");
  const char* show = R"(
    const [list, points] = arguments;
    const total = {phones: 4, first_tested: 3, first_passed: 2, passed: 3, runs: 6, hours: [{name: '8', passed: 3, failed: 1}],
      days: [], failing: [], plans: ['Plan'], stations: [], measurements: list};
    window.fetch = async (path) => new Response(JSON.stringify(path.startsWith('/trend') ? points : total),
      {headers: {'Content-Type': 'application/json'}});
    document.querySelector('#spread').textContent = '';
    document.querySelector('#range').dispatchEvent(new Event('change'));)";
  const auto measurement = [](const char* step, int minimum, int maximum, bool few) {
    return Json{{"plan", "Plan"},    {"number", 1},         {"step", step},       {"reading", "signal"},
                {"unit", "V"},       {"minimum", minimum},  {"maximum", maximum}, {"count", 3},
                {"mean", 1234.5678}, {"spread", 0.0012345}, {"cp", nullptr},      {"cpk", 1.5},
                {"few", few},        {"definitions", {1}}};
  };
  const Json points =
      Json::parse(R"([{"value": 0, "verdict": "passed"}, {"value": 40, "verdict": "device failure"},
                                      {"value": 100, "verdict": "passed"}])");
  const auto spread = [this] {
    return page_.Await("return document.querySelector('#spread').textContent", "the values")
        .get<std::string>();
  };
  page_.Run(show, {Json{measurement("A", 0, 100, true), measurement("B", 0, 100, false)}, points});
  EXPECT_EQ("3 values · mean 1235 V · spread 0.001234 · Cp – · Cpk 1.5 (of few values)", spread());
  for (const char* part : {"66.7 %", "2 of 3 new phones", "75.0 %", "3 of 4 phones", "2 of them again"})
    EXPECT_NE(std::string::npos, page_.Text("#tiles").find(part)) << part;
  const Json drawn = page_.Run(R"(
    return import('/charts.js').then(({drawn}) => {
      const {trend, histogram, hours} = drawn();
      return [trend.datasets.map(({label, data}) => [label, ...data]), new Set(trend.datasets[0].pointBackgroundColor).size,
        histogram.datasets[0].data.map(({y}) => y), hours.datasets[2].data];
    }))");
  EXPECT_EQ(
      Json::parse(R"([[["signal", 0, 40, 100], ["lower limit", 0, 0, 0], ["upper limit", 100, 100, 100]], 2,
                            [1, 0, 1, 0, 1], [0.75]])"),
      drawn);
  page_.Run(
      "const list = document.querySelector('#measurement'); list.value = '1. B: signal';"
      "document.querySelector('#spread').textContent = ''; list.dispatchEvent(new Event('change'))");
  EXPECT_EQ(std::string::npos, spread().find("few"));
  // The list grows before the chosen one; one of other limits has a name of its own.
  page_.Run(show, {Json{measurement("0", 0, 1, true), measurement("A", 0, 100, true),
                        measurement("B", 0, 100, false), measurement("B", 0, 90, true)},
                   points});
  EXPECT_EQ(std::string::npos, spread().find("few"));
  EXPECT_EQ((Json{"1. B: signal", "1. 0: signal|1. A: signal|1. B: signal|1. B: signal, 0 to 90"}),
            page_.Run("const list = document.querySelector('#measurement');"
                      "return [list.value, [...list.options].map(({value}) => value).join('|')]"));
  EXPECT_EQ("", page_.Complaints());
}

}  // namespace
