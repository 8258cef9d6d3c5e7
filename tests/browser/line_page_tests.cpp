// The modules of the line's pages with data of the test's own: what a card, a report and the frame show.
#include "tests/browser/line_page_test.h"

namespace {

using browser::Json;

// What a card shows for a view: all of its text, its kind, and a letter for each step's square.
constexpr char CARD[] = R"(
  const [change] = arguments;
  return import('/card.js').then(({Card}) => {
    const card = new Card({name: 'Z', barcode: 'SLOT-Z'}, ['a', 'b', 'c', 'd', 'e'], {choose() {}});
    document.body.append(card.element);
    card.show({values: [], wants: null, run: null, verdict: null, marks: '', barcode: 'SLOT-Z', ...change});
    const marks = [...card.element.querySelectorAll('.marks span')]
      .map((one) => ({now: '>', '': '.'}[one.className] ?? one.className).repeat(one.textContent.length)).join('');
    const text = card.element.innerText;
    card.element.remove();
    return {text, kind: card.element.dataset.kind, marks};
  }))";

TEST_F(LinePageTest, ACardShowsWhatItsSlotDoes) {
  const std::string run =
      R"("state": "running", "run": {"step": 3, "steps": 5, "name": "Radio", "seconds": 8, "question": null, )";
  const std::string verdict = R"("state": "finished", "verdict": {"run": "", "problem": "", "sign": "!", )";
  const std::string five =
      R"({"step": "S1", "text": "t1"}, {"step": "S2", "text": ""}, {"step": "S3", "text": ""}, {"step": "S4", "text": ""}, )"
      R"({"step": "S5", "text": ""})";
  const struct {
    std::string view;
    std::vector<std::string> parts;
    std::string never;
    std::string kind;
    std::string marks;
  } cases[] = {
      {R"("state": "idle")", {"Put a phone in and scan it", "SLOT-Z", "free"}, "Start over", "idle", ""},
      {R"("state": "ready", "values": [{"name": "serial number", "value": "SN1"}], "wants": {"name": "colour", "help": "on the label"})",
       {"Scan the colour", "on the label", "SN1", "Start over"},
       "SLOT-Z",
       "ready",
       ""},
      {run + R"("left": 72}, "marks": "pf")",
       {"Step 3 of 5 · about 72 s left", "Radio"},
       "min",
       "running",
       "pf>.."},
      {run + R"("left": 89.4}, "marks": "p-")", {"about 89 s left"}, "min", "running", "pn>.."},
      {run + R"("left": 120}, "marks": "pp")", {"about 2 min left"}, "120 s", "running", "pp>.."},
      {run + R"("left": 0.5}, "marks": "")", {"nearly done"}, "about", "running", "..>.."},
      {run + R"("left": null}, "marks": "")", {"Step 3 of 5"}, "·", "running", "..>.."},
      {R"("state": "running", "run": {"question": {"number": 7, "text": "Red?", "picture": false}})",
       {"Red?", "Pass", "Fail", "asks"},
       "testing",
       "asks",
       ""},
      {verdict + R"("word": "FAIL", "kind": "fail", "seconds": 1.25, "failures": [)" + five + "]}",
       {"FAIL", "S1", "t1", "S4", "and 1 more", "1.3 s"},
       "S5",
       "fail",
       ""},
      {verdict + R"("word": "PASS", "kind": "pass", "failures": []})",
       {"PASS", "Test again"},
       "more",
       "pass",
       ""},
      {verdict + R"("word": "FAIL", "kind": "fail", "failures": [)" +
           five.substr(0, five.rfind(',', five.rfind("S5"))) + "]}",
       {"S4"},
       "more",
       "fail",
       ""}};
  for (const auto& tried : cases) {
    const Json shown = page_.Run(CARD, Json::array({Json::parse("{" + tried.view + "}")}));
    const std::string text = shown.at("text");
    for (const std::string& part : tried.parts)
      EXPECT_NE(std::string::npos, text.find(part)) << part << "\n" << text;
    EXPECT_EQ(std::string::npos, text.find(tried.never)) << tried.never << "\n" << text;
    EXPECT_EQ(tried.kind, shown.at("kind")) << text;
    EXPECT_EQ(tried.marks, shown.at("marks")) << tried.view;
  }
  // While a step runs, its time counts down.
  EXPECT_TRUE(page_.Run(R"(
    return import('/card.js').then(({Card}) => {
      const card = new Card({name: 'Z'}, ['a'], {});
      card.show({values: [], run: {step: 1, steps: 1, name: '', seconds: 2, left: 60}, marks: '', state: 'running'});
      const seconds = () => Number(/about (\d+) s/.exec(card.element.textContent)[1]);
      const [first, share] = [seconds(), card.element.querySelector('progress').value];
      card.received -= 20000;
      card.tick();
      return first === 60 && seconds() === 40 && card.element.querySelector('progress').value > share;
    }))"));
  EXPECT_EQ("", page_.Complaints());
}

TEST_F(LinePageTest, AReportShowsLimitsAndWhatIsWrong) {
  const struct {
    const char* value;
    std::string line;
    const char* style;
  } cases[] = {
      {R"("value": 5, "unit": "V", "minimum": 1, "maximum": 9, "verdict": "passed")", "r 5 V (1 to 9)",
       "values"},
      {R"("value": 5, "minimum": null, "maximum": 9, "verdict": "passed")", "r 5 (at most 9)", "values"},
      {R"("value": 5, "minimum": null, "maximum": 0, "verdict": "device failure")", "r 5 (at most 0)",
       "bad-text"},
      {R"("value": 0, "minimum": 0, "maximum": null, "verdict": "passed")", "r 0 (at least 0)", "values"},
      {R"("value": 0, "minimum": 0, "maximum": 0, "verdict": "passed")", "r 0 (0 to 0)", "values"},
      {R"("value": null, "text": "abc", "verdict": "skipped")", "r abc", "values"},
      {R"("value": null, "text": "abc", "stated": "equal to x", "verdict": "device failure")",
       "r abc (equal to x)", "bad-text"}};
  for (const auto& [value, line, style] : cases) {
    Json one = Json::parse(std::string("{") + value + "}");
    for (const char* limit : {"minimum", "maximum"}) one.emplace(limit, nullptr);
    one["reading"] = "r";
    const Json step = {{"number", 1},
                       {"name", "S"},
                       {"verdict", "passed"},
                       {"attempts", 1},
                       {"microseconds", 1'500'000},
                       {"message", ""},
                       {"values", Json::array({one})},
                       {"files", Json::array()}};
    const Json shown = page_.Run(R"(
      return import('/report.js').then(({reportOf}) => {
        const place = document.createElement('div');
        place.append(...reportOf({run: 'r', verdict: 'passed', started: 0, milliseconds: 999, files: [], steps: arguments[0]}));
        const value = place.querySelector('tbody div');
        return [value.textContent, value.className, place.querySelector('tbody .number + td + .number').textContent,
          place.textContent.includes('999 ms')];
      }))",
                                 Json::array({Json::array({step})}));
    EXPECT_EQ((Json{line, style, "1.5 s", true}), shown);
  }
  const char* styles = R"(
    return import('/report.js').then(({reportOf}) => ['passed', 'skipped', 'device failure', 'aborted'].map((verdict) => {
      const step = {number: 1, name: 'S', verdict, attempts: 0, message: 'm', values: [], files: []};
      const place = document.createElement('div');
      place.append(...reportOf({run: 'r', verdict, started: 0, files: [], steps: [step]}));
      return `${place.querySelector('tbody div').className} ${place.querySelectorAll('ul li').length}`;
    })))";
  EXPECT_EQ((Json{"values 0", "values 0", "bad-text 1", "bad-text 1"}), page_.Run(styles));
}

TEST_F(LinePageTest, TheFrameSaysWhatWaitsAndTheLineIsHeldForAReason) {
  const std::tuple<bool, int, std::string, std::string> cases[] = {
      {true, 0, "results stored", "good"},
      {true, 1, "1 run waits to be handed in", "warn"},
      {true, 2, "2 runs wait to be handed in", "warn"},
      {false, 1, "results cannot be reached · 1 run waits", "bad"},
      {false, 0, "results cannot be reached · 0 runs wait", "bad"}};
  for (const auto& [reachable, waiting, text, kind] : cases) {
    EXPECT_EQ(text + "|badge " + kind, page_.Run(R"(
      const [reachable, waiting] = arguments;
      return import('/frame.js').then(({openFrame}) => openFrame('Other')).then(({showStore}) => {
        showStore({reachable, waiting, where: ''});
        const badge = document.querySelector('#store');
        return `${badge.textContent}|${badge.className}`;
      }))",
                                                 {reachable, waiting}));
  }
  // Without a reason the operators would not know why.
  EXPECT_EQ((Json{"", "no labels", ""}), page_.Run(R"(
    const asked = [];
    window.fetch = async (path, {body}) => { asked.push(JSON.parse(body).reason); return new Response('{}'); };
    return import('/frame.js').then(async ({holdButton}) => {
      for (const [held, reason] of [['why', null], ['', '  '], ['', null], ['', ' no labels '], ['why', 'x']]) {
        window.prompt = () => reason;
        holdButton({role: 'manager', held}).click();
        await new Promise((done) => setTimeout(done));
      }
      return holdButton({role: 'operator', held: ''}) === null ? asked : 'an operator may hold';
    }))"));
}

}  // namespace
