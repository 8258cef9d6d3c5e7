// A test line as its operators see it: the real program, simulated phones, a real browser.
#include <gtest/gtest.h>

#include <fstream>
#include <numeric>

#include "tests/browser/browser.h"
#include "tests/browser/line_under_test.h"
#include "tests/station/postgresql_server.h"

namespace {

using browser::Browser;
using browser::Folder;
using browser::Json;
using browser::RunningPhone;
using browser::ServedLine;

constexpr const char* BOARD_TEST = R"({
  "name": "Board test",
  "variables": {"colour": {"help": "on the label", "required": true, "default": "", "pattern": "[a-z]+"}},
  "line": {"serial-pattern": "SN[0-9]+", "serial-pattern-help": "SN and a number", "retest-reason": true},
  "on-failure": "continue",
  "steps": [
    {"name": "The server answers", "command": "ping"},
    {"name": "Clock", "command": "clock get", "limits": {"time": {"pattern": "^[0-9]"}}},
    {"name": "Radio hears a station", "command": "radio measure", "arguments": {"frequency": 98.5, "volume": 0},
     "limits": {"signal": {"minimum": 10000, "maximum": 65000}}},
    {"name": "Motor on", "command": "motor on"},
    {"name": "Motor felt", "question": "Does the ${colour} phone vibrate?"},
    {"name": "Motor off", "command": "motor off", "always": true}
  ]
})";

constexpr const char* BOX_TEST = R"({
  "name": "Box test",
  "variables": {"address": {"draw": "addresses"}, "unit": {"required": true, "default": ""},
                "lot": {"required": true, "default": "", "pattern": "L[0-9]"}},
  "line": {"requires": "Board test", "settings": ["lot", "unit"]},
  "steps": [{"name": "The server answers", "command": "ping"},
            {"name": "The label is printed", "program": ["true", "${address}", "${lot}"]}]
})";

class LineTest : public testing::Test {
 protected:
  void SetUp() override {
    if (!browser::MissingBrowser().empty()) GTEST_SKIP() << browser::MissingBrowser();
    page_.Open("about:blank");
    page_.Complaints();  // of the tests before
    std::ofstream(folder_ / "board.json") << BOARD_TEST;
    std::ofstream(folder_ / "box.json") << BOX_TEST;
  }

  std::unique_ptr<ServedLine> Serve(const std::string& plan, const std::vector<std::string>& slots) {
    return Serve(plan, slots, folder_ / "results.db");
  }

  std::unique_ptr<ServedLine> Serve(const std::string& plan, const std::vector<std::string>& slots,
                                    const std::string& results) {
    std::vector<std::string> ports;
    for (const std::string& slot : slots) ports.push_back(slot + "=" + (folder_ / slot));
    auto line = std::make_unique<ServedLine>(
        ports,
        std::vector<std::string>{"--plan", folder_ / plan, "--station", "LINE3", "--results", results});
    page_.Open(line->Address());
    return line;
  }

  // As a scanner does it: the characters at once, and Enter.
  void Scan(const std::string& text) {
    page_.Type("#scan", text + "\n");
  }

  // Scans a phone and answers the board test's question on card A; returns the card's text with the word.
  std::string RunBoard(const std::string& serial, const std::string& answer, const std::string& word) {
    Scan(serial);
    Scan("grey");
    AwaitCard("A", "Does the grey phone vibrate?");
    page_.Type("#scan", answer);
    return AwaitCard("A", word);
  }

  void AwaitStore(const std::string& part) {
    page_.Await("return document.querySelector('#store').innerText.includes(arguments[0])", part, {part});
  }

  // Waits until the card's element shows the text; returns all of the card's text.
  std::string AwaitCard(const std::string& slot, const std::string& part) {
    return page_.Await(
        "const card = document.querySelector(`#slot-${arguments[0]}`);"
        "return card?.innerText.includes(arguments[1]) ? card.innerText : ''",
        "slot " + slot + " shows " + part, {slot, part});
  }

  Json Ask(const std::string& path) {
    return page_.Run("return fetch(arguments[0]).then((answer) => answer.json())", {path});
  }

  Json NewestRun(const std::string& phone) {
    return Ask("/runs/" + Ask("/runs?phone=" + phone).at(0).at("run").get<std::string>());
  }

  static Json StepNamed(const Json& run, const std::string& name) {
    for (const Json& step : run.at("steps")) {
      if (step.at("name") == name) return step;
    }
    return {};
  }

  Folder folder_;
  Browser& page_ = Browser::Shared();
};

TEST_F(LineTest, APhoneIsScannedTestedAskedAboutAndPassed) {
  const RunningPhone phone("a", folder_ / "A");
  const auto line = Serve("board.json", {"A", "B"});
  AwaitCard("A", "SLOT-A");
  page_.Type("#person", "Kim\n");
  EXPECT_EQ("scan", page_.Run("return document.activeElement.id"));

  const char* card_top = "return document.querySelector('#slot-A').offsetTop";
  const Json before = page_.Run(card_top);
  EXPECT_EQ(Json(), page_.Run("return document.querySelector('#hint.refusal')"))
      << "the name's Enter is no scan";
  Scan("SN0001");
  page_.Await("return document.querySelector('#hint').innerText.includes('Choose a slot')", "the refusal");
  Scan("SLOT-A");
  Scan("XY1");
  page_.Await("return document.querySelector('#hint.refusal')?.innerText === arguments[0]", "the refusal",
              {"“XY1” is no serial number: it must be SN and a number. Scan the right label."});
  EXPECT_EQ(before, page_.Run(card_top)) << "a button must not move under a finger";
  const std::string turned = page_.Run(
      "return fetch('/scan', {method: 'POST', body: JSON.stringify({text: 'SN\\u202E1', slot: 'A', who: "
      "'x'})})"
      ".then((answer) => answer.text())");
  EXPECT_NE(std::string::npos, turned.find("no code that a label has")) << turned;
  // One after the other, sooner than the page can answer.
  Scan("SN0001");
  AwaitCard("A", "Scan the colour");
  Scan("green");
  AwaitCard("A", "Does the green phone vibrate?");

  // A page asks for a picture that is not there any more: nothing is wrong with that.
  EXPECT_EQ(204, page_.Run("return fetch('/slots/A/picture?question=0').then((answer) => answer.status)"));

  // Another page and a loaded one show the same question; a scan that begins with p answers nothing.
  page_.Open(line->Address());
  AwaitCard("A", "Does the green phone vibrate?");
  Scan("pSN77");
  page_.Await("return document.querySelector('#hint').innerText.includes('Slot A is testing SN0001')",
              "the refusal");
  AwaitCard("A", "Does the green phone vibrate?");
  page_.Screenshot(std::filesystem::path(SCREENSHOTS) / "line-question.png");
  page_.Type("#scan", "p");
  AwaitCard("A", "PASS");
  EXPECT_EQ("pass", page_.Run("return document.querySelector('#slot-A').dataset.kind"));
  page_.Screenshot(std::filesystem::path(SCREENSHOTS) / "line-pass.png");

  const Json run = NewestRun("SN0001");
  EXPECT_EQ("passed", run.at("verdict"));
  EXPECT_EQ("LINE3", run.at("station"));
  EXPECT_EQ("A", run.at("slot"));
  EXPECT_EQ("Kim", run.at("operator"));
  EXPECT_EQ("green", run.at("variables").at("colour"));
  EXPECT_EQ("pass", StepNamed(run, "Motor felt").at("answer").at("reply"));
  EXPECT_EQ("Kim", StepNamed(run, "Motor felt").at("answer").at("by"));

  // The word stays until the next phone; the same phone again wants a reason, which is stored.
  Scan("SLOT-B");
  Scan("SLOT-A");
  AwaitCard("A", "PASS");
  Scan("SN0001");
  Scan("green");
  AwaitCard("A", "reason for another test");
  Scan("returned by a customer");
  AwaitCard("A", "vibrate?");
  page_.Click("#slot-A .replies .pass");
  AwaitCard("A", "PASS");
  EXPECT_EQ("returned by a customer", NewestRun("SN0001").at("variables").at("retest reason"));
  page_.Click("#slot-A .retest");
  AwaitCard("A", "reason for another test");
  EXPECT_EQ("", page_.Complaints());
}

TEST_F(LineTest, SlotsDoNotWaitForEachOther) {
  const RunningPhone left("a", folder_ / "A");
  const RunningPhone right("b", folder_ / "B");
  right.Do({"fault", "request", "/dev/misc/rtc", "error=EIO", "times=always"});
  const auto line = Serve("board.json", {"A", "B", "C"});
  AwaitCard("C", "SLOT-C");
  for (const char* text : {"SLOT-A", "SN1", "red", "SLOT-B", "SN2", "blue", "SLOT-C", "SN3", "none"})
    Scan(text);

  // There is no phone in C, A waits for its answer, and B fails.
  const std::string nobody = AwaitCard("C", "NO PHONE");
  EXPECT_NE(std::string::npos, nobody.find("there is no port"));
  EXPECT_EQ(std::string::npos, nobody.find("not run"));
  AwaitCard("A", "Does the red phone vibrate?");
  AwaitCard("B", "Does the blue phone vibrate?");
  Scan("SLOT-B");
  page_.Type("#scan", "f");
  const std::string failed = AwaitCard("B", "FAIL");
  EXPECT_NE(std::string::npos, failed.find("Motor felt"));
  EXPECT_NE(std::string::npos, failed.find("Clock"));
  // The key reaches the question also when the focus is on no field, as after a click.
  page_.Click("#slot-B .retest");
  AwaitCard("B", "Does the blue phone vibrate?");
  page_.Run("document.activeElement.blur()");
  page_.KeyDown("f");
  page_.KeyUp("f");
  AwaitCard("B", "FAIL");
  AwaitCard("A", "Does the red phone vibrate?");
  page_.Screenshot(std::filesystem::path(SCREENSHOTS) / "line-fail.png");
  // What the card says is what is stored.
  const Json run = NewestRun("SN2");
  EXPECT_EQ("device failure", run.at("verdict"));
  for (const char* step : {"Clock", "Motor felt"}) {
    EXPECT_NE(std::string::npos, failed.find(StepNamed(run, step).at("message").get<std::string>())) << step;
  }

  const char* post =
      "return fetch(arguments[0], {method: 'POST', body: arguments[1]}).then((answer) => answer.status)";
  EXPECT_EQ(400, page_.Run(post, {"/slots/A/answer", R"({"question": 1, "reply": "maybe"})"}));
  EXPECT_EQ(409, page_.Run(post, {"/slots/A/answer", R"({"question": 0, "reply": "pass"})"}))
      << "an answer to another question";
  AwaitCard("A", "Does the red phone vibrate?");

  // An abort puts the phone back.
  page_.Type("#person", "Robin\n");
  page_.Click("#slot-A .abort");
  EXPECT_NE(std::string::npos, AwaitCard("A", "ABORTED").find("aborted by Robin"));
  const Json aborted = NewestRun("SN1");
  EXPECT_EQ("aborted", aborted.at("verdict"));
  EXPECT_EQ("passed", StepNamed(aborted, "Motor off").at("verdict"));
  EXPECT_EQ("aborted by Robin", StepNamed(aborted, "Motor felt").at("message"));

  // Only the line manager holds the line.
  const char* hold =
      "return fetch('/hold', {method: 'POST', body: JSON.stringify({reason: 'no labels'})}).then((a) => "
      "a.status)";
  EXPECT_EQ(403, page_.Run(hold));
  page_.Open(line->ManagerAddress());
  AwaitCard("B", "FAIL");
  EXPECT_EQ(200, page_.Run(hold));
  page_.Await("return document.querySelector('#held').innerText.includes('no labels')", "the notice");
  Scan("SN4");
  page_.Await("return document.querySelector('#hint').innerText.includes('The line is held')", "the refusal");
  EXPECT_EQ(409, page_.Run(post, {"/slots/B/retest", "{}"}));
  AwaitCard("B", "FAIL");
}

TEST_F(LineTest, TheLineGoesOnWithoutItsDatabaseAndRefusesWhatCannotBeLookedUp) {
  const RunningPhone phone("a", folder_ / "A");
  const std::string database = folder_ / "results.db";
  {
    const auto board = Serve("board.json", {"A"});
    AwaitCard("A", "SLOT-A");
    RunBoard("SN1", "p", "PASS");
    RunBoard("SN2", "f", "FAIL");
    // A run that was aborted says nothing about the phone.
    Scan("SN1");
    Scan("grey");
    AwaitCard("A", "reason for another test");
    Scan("again");
    AwaitCard("A", "vibrate?");
    page_.Click("#slot-A .abort");
    AwaitCard("A", "ABORTED");

    std::filesystem::rename(database, database + ".away");
    std::filesystem::create_directory(database);
    AwaitStore("cannot be reached");
    EXPECT_NE(std::string::npos, RunBoard("SN3", "p", "PASS").find("kept on this computer"));
    std::filesystem::remove(database);
    std::filesystem::rename(database + ".away", database);
    AwaitStore("results stored");
    EXPECT_EQ(1u, Ask("/runs?phone=SN3").size());
    EXPECT_EQ("passed", NewestRun("SN3").at("verdict"));
  }
  const auto box = Serve("box.json", {"A"});
  // The line manager adds numbers, and the plan draws one.
  const char* add =
      "return fetch('/numbers', {method: 'POST', body: JSON.stringify({pool: 'addresses',"
      "range: '00:02:5B:0A:00:00-00:02:5B:0A:00:0F'})}).then((a) => a.status)";
  EXPECT_EQ(403, page_.Run(add));
  EXPECT_EQ(403, page_.Run("return fetch('/settings', {method: 'POST', body: JSON.stringify({name: 'lot',"
                           "value: 'L6'})}).then((a) => a.status)"));
  page_.Open(box->ManagerAddress());
  EXPECT_EQ(200, page_.Run(add));
  // What a phone's label holds is asked for in the plan's order.
  AwaitCard("A", "SLOT-A");
  Scan("SN1");
  AwaitCard("A", "Scan the unit");
  page_.Click("#slot-A .actions button");
  AwaitCard("A", "SLOT-A");
  // And sets what the plan lets be set: it is not asked of the operator any more.
  page_.Click("a[href='/settings.html']");
  page_.Type("[data-setting=lot] input", "7\n");
  page_.Await(
      "return document.querySelector('.tell-failure')?.innerText.includes('“7” is no lot: it does not look "
      "like one')",
      "the refusal");
  page_.Type("[data-setting=lot] input", "L7\n");
  page_.Await("return document.querySelector('#tells').innerText.includes('lot is L7')", "the setting");
  page_.Type("[data-setting=unit] input", "7\n");
  page_.Await("return document.querySelector('#tells').innerText.includes('unit is 7')", "the setting");
  page_.Click("a[href='/']");
  AwaitCard("A", "SLOT-A");
  Scan("SN1");
  AwaitCard("A", "PASS");
  EXPECT_EQ("00:02:5B:0A:00:00", NewestRun("SN1").at("variables").at("address"));
  EXPECT_EQ("L7", NewestRun("SN1").at("variables").at("lot"));
  EXPECT_EQ(15, Ask("/numbers").at(0).at("left"));
  Scan("SN2");
  AwaitCard("A", "Phone SN2 has not passed “Board test”. It failed there at station LINE3");
  Scan("SN9");
  AwaitCard("A", "Phone SN9 has never passed “Board test”");
  std::filesystem::rename(database, database + ".away");
  std::filesystem::create_directory(database);
  Scan("SN1");
  AwaitCard("A", "The results cannot be reached");
}

TEST_F(LineTest, AServerOfResultsStopsInTheMiddleOfARunAndGetsEachRunOnceWhenItIsBack) {
  if (const std::string missing = PostgresqlServer::Missing(); !missing.empty()) GTEST_SKIP() << missing;
  constexpr const char* PASSWORD = "not-for-the-page";
  const RunningPhone phone("a", folder_ / "A");
  PostgresqlServer server;
  setenv("PGPASSWORD", PASSWORD, 1);
  const auto line = Serve("board.json", {"A"}, server.Address());
  unsetenv("PGPASSWORD");
  AwaitCard("A", "SLOT-A");
  RunBoard("SN1", "p", "PASS");
  AwaitStore("results stored");

  Scan("SN2");
  Scan("grey");
  AwaitCard("A", "Does the grey phone vibrate?");
  server.Kill();
  AwaitStore("results cannot be reached");
  page_.Type("#scan", "f");
  EXPECT_NE(std::string::npos, AwaitCard("A", "FAIL").find("kept on this computer"));
  RunBoard("SN3", "p", "PASS");
  AwaitStore("2 runs wait");
  const std::string refusal = page_.Run("return fetch('/runs').then((answer) => answer.text())");
  EXPECT_NE(std::string::npos, refusal.find("cannot be reached")) << refusal;
  EXPECT_EQ(std::string::npos, refusal.find(PASSWORD)) << refusal;
  EXPECT_EQ(std::string::npos, browser::RunProgram({"ps", "-ef"}).output.find(PASSWORD));

  server.Start();
  AwaitStore("results stored");
  for (const auto& [serial, verdict] :
       {std::pair{"SN1", "passed"}, {"SN2", "device failure"}, {"SN3", "passed"}}) {
    ASSERT_EQ(1u, Ask(std::string("/runs?phone=") + serial).size()) << serial;
    EXPECT_EQ(verdict, NewestRun(serial).at("verdict")) << serial;
  }
  EXPECT_EQ("fail", StepNamed(NewestRun("SN2"), "Motor felt").at("answer").at("reply"));
  EXPECT_EQ(3, Ask("/yields").at("runs"));
}

TEST_F(LineTest, SimulatedPhonesComeWithAScanAndGoWithTheLine) {
  std::string executable;
  {
    const ServedLine line(
        {}, {"--plan", folder_ / "board.json", "--simulate", "1", "--results", folder_ / "results.db"});
    page_.Open(line.Address());
    AwaitCard("1", "SLOT-1");
    Scan("SN7");
    Scan("pink");
    AwaitCard("1", "Does the pink phone vibrate?");
    EXPECT_NE(std::string::npos, browser::RunToEnd({PHONESIM_PROGRAM, "status"}).find("-1: running"));
    page_.Type("#scan", "p");
    AwaitCard("1", "PASS");
    // A phone that was ended boots anew for its next test.
    browser::RunToEnd({PHONESIM_PROGRAM, "--name", "line-" + std::to_string(line.Process()) + "-1", "stop"});
    page_.Click("#slot-1 .retest");
    AwaitCard("1", "reason for another test");
    Scan("it was ended");
    AwaitCard("1", "Does the pink phone vibrate?");
    executable = Json::parse(browser::RunToEnd({PHONESIM_PROGRAM, "status", "--json"}))
                     .at(0)
                     .at("executable")
                     .at("sha256");
    page_.Open(page_.Run("return document.querySelector('#slot-1 header a').href").get<std::string>());
    page_.Await("return document.querySelector('header').innerText.includes('running')", "the phone's page");
    // The line ends while the question is open: the phone is put back, and the run is stored as aborted.
  }
  EXPECT_EQ(std::string::npos, browser::RunToEnd({PHONESIM_PROGRAM, "status"}).find("line-"));
  const Json runs = Json::parse(browser::RunToEnd(
      {PHONETEST_PROGRAM, "--json", "history", "SN7", "--results", folder_ / "results.db"}));
  EXPECT_EQ("aborted", runs.back().at("verdict"));
  EXPECT_EQ("1", runs.back().at("slot"));
  EXPECT_EQ(executable, runs.back().at("executable-sha256"));
}

TEST_F(LineTest, HistoryAndChartsShowWhatWasRun) {
  const RunningPhone phone("a", folder_ / "A");
  const auto line = Serve("board.json", {"A"});
  AwaitCard("A", "SLOT-A");
  for (const char* reply : {"f", "p"}) {
    Scan("SN5");
    Scan("white");
    AwaitCard("A", "vibrate?");
    page_.Type("#scan", reply);
    AwaitCard("A", *reply == 'p' ? "PASS" : "FAIL");
  }
  page_.Click("#slot-A .report");
  page_.Await("return document.querySelector('#report').innerText.includes('Radio hears a station')",
              "the report");
  EXPECT_NE(std::string::npos, page_.Text("#report").find("10000 to 65000"));
  // What is attached to a run is shown only if it is a picture: anything else must not run in the browser.
  std::ofstream(folder_ / "small.json")
      << R"({"name": "Small", "variables": {"serial": {}}, "steps": [{"command": "ping"}]})";
  std::ofstream(folder_ / "x.html") << "<script>alert(1)</script>";
  browser::RunToEnd({PHONETEST_PROGRAM, "--port", folder_ / "A", "run", folder_ / "small.json", "--set",
                     "serial=SN8", "--attach", folder_ / "x.html", "--station", "ELSEWHERE", "--results",
                     folder_ / "results.db"});
  // The run of another station comes into the list by itself.
  page_.Await("return document.querySelector('#runs').innerText.includes('ELSEWHERE')",
              "the other station's run");
  EXPECT_EQ("application/octet-stream, attachment; filename=\"x.html.txt\"",
            page_.Run("return fetch(arguments[0]).then(({headers}) => "
                      "`${headers.get('Content-Type')}, ${headers.get('Content-Disposition')}`)",
                      {"/runs/" + NewestRun("SN8").at("run").get<std::string>() + "/files/0/x.html"}));
  EXPECT_EQ(Json::array(), NewestRun("SN8").at("steps").at(0).at("files")) << "it is the whole run's";
  const Json measured = Ask("/yields").at("measurements").at(0).at("definitions");
  const Json points = Ask("/trend?measurement=" + measured.at(0).dump());
  ASSERT_EQ(2u, points.size());
  EXPECT_LT(points[0].at("started"), points[1].at("started")) << "the oldest first";
  page_.Type("#phone", "SN5\n");
  page_.Await("return document.querySelector('#found').innerText === 'Runs of SN5'", "the search");
  EXPECT_EQ(2, page_.Run("return document.querySelectorAll('#runs tr').length"));
  page_.Run("document.querySelector('#search').to.value = '2000-01-01'");
  page_.Type("#phone", "\n");
  page_.Await("return document.querySelector('#runs').innerText.includes('No run was found')",
              "the empty search");

  // A run that measured and was then aborted says nothing about the phone: it is in no figure and no chart.
  page_.Open(line->Address());
  AwaitCard("A", "PASS");
  Scan("SN6");
  AwaitCard("A", "Scan the colour");
  page_.Run(
      "fetch('/scan', {method: 'POST', body: JSON.stringify({text: 'white', slot: 'A', who: "
      "'x'.repeat(300)})})");
  AwaitCard("A", "vibrate?");
  EXPECT_TRUE(Ask("/runs?phone=SN6").at(0).at("milliseconds").is_null()) << "it has no end yet";
  page_.Click("#slot-A .abort");
  AwaitCard("A", "ABORTED");
  EXPECT_EQ(std::string(240, 'x'), NewestRun("SN6").at("operator")) << "a name is cut";
  page_.Click("a[href='/yield.html']");
  page_.Await("return document.querySelector('#spread')?.innerText.startsWith('2 values')", "the values");
  const Json drawn = page_.Run(
      "return import('/charts.js').then(({drawn}) => Object.fromEntries(Object.entries(drawn()).map(([id, "
      "chart]) =>"
      "[id, chart.datasets.map(({data}) => data.map((one) => one.y ?? one))])))");
  EXPECT_EQ(Json::parse("[[46000, 46000], [10000, 10000], [65000, 65000]]"), drawn.at("trend"));
  const auto classes = drawn.at("histogram")[0].get<std::vector<int>>();
  EXPECT_EQ(2, std::accumulate(classes.begin(), classes.end(), 0));
  EXPECT_EQ(Json::parse("[[1]]"), drawn.at("steps"));
  for (const char* chart : {"hours", "days"}) EXPECT_EQ(Json::parse("[[1], [0], [1]]"), drawn.at(chart));
  EXPECT_EQ(
      Json::parse(R"(["all stations", "ELSEWHERE", "LINE3"])"),
      page_.Run("return [...document.querySelectorAll('#station option')].map((one) => one.innerText)"));
  EXPECT_NE(std::string::npos, page_.Text("#tiles").find("0 of 1 new phones"));
  EXPECT_EQ("", page_.Complaints());
  page_.Screenshot(std::filesystem::path(SCREENSHOTS) / "line-yield.png");
  // On a narrow window the pages scroll down only.
  for (const char* path : {"/yield.html", "/history.html", "/"}) {
    page_.Resize(390, 844);
    page_.Run("location.pathname = arguments[0]", {path});
    page_.Await("return location.pathname === arguments[0] && document.querySelector('#frame nav') !== null",
                path, {path});
    EXPECT_EQ(390, page_.Run("return document.documentElement.scrollWidth")) << path;
  }
  page_.Resize(1280, 800);
}

}  // namespace
