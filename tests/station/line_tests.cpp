// A test line without its page: what a scan, a question, a label and the phones before mean to a slot.
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <thread>

#include "station/line/line.h"
#include "station/line/results_store.h"
#include "station/results/history.h"
#include "station/results/schema.h"
#include "tests/station/scripted_phone.h"

namespace {

using namespace std::chrono_literals;
using namespace station;
using nlohmann::ordered_json;

std::string Picture(const std::string& name) {
  return TemporaryFile(name, "\x89PNG " + name);
}

// A line of one slot, whose phone answers by a script.
class TestLine {
 public:
  explicit TestLine(const std::string& plan, std::vector<Turn> turns = {})
      : phone_(std::move(turns)),
        address_(ParseResultsAddress(TemporaryFolder() + "/line.db")),
        store_(address_),
        line_({.slots = {{"A", phone_.Port(), "SLOT-A"}},
               .plan = ReadPlanOutline(TemporaryFile("line.json", plan)),
               .variables = {},
               .station = "LINE3",
               .tool_version = "",
               .answer_time = {},
               .insert = {},
               .executable = {}},
              store_, [](const std::string&) {}) {}

  Line& Get() {
    return line_;
  }
  LineSlot& Slot() {
    return line_.Slots().front();
  }
  // Returns the refusal.
  std::string Scan(const std::string& text, const std::string& who = "Kim") {
    return line_.Scan(text, "", who).refusal;
  }
  Connection Results() const {
    return OpenResults(address_);
  }

  // Waits until the slot's view is so, and returns it.
  ordered_json Await(const char* what, const std::function<bool(const ordered_json&)>& is_so) {
    const auto deadline = std::chrono::steady_clock::now() + 60s;
    for (;;) {
      ordered_json view = Slot().View();
      const bool found = is_so(view);
      if (found || std::chrono::steady_clock::now() > deadline) {
        EXPECT_TRUE(found) << "not in time: " << what << "\n" << view.dump(2);
        return view;
      }
      std::this_thread::sleep_for(2ms);
    }
  }
  ordered_json AwaitQuestion(const char* text) {
    const auto asks = [text](const ordered_json& view) {
      return view["run"].is_object() && view["run"]["question"].is_object() &&
             view["run"]["question"]["text"] == text;
    };
    return Await(text, asks);
  }
  ordered_json AwaitVerdict(const char* word) {
    return Await(word, [word](const ordered_json& view) {
      return view["verdict"].is_object() && view["verdict"]["word"] == word;
    });
  }
  std::string Answer(const ordered_json& view, Answer::Reply reply, const std::string& who) {
    return Slot().AnswerQuestion(view["run"]["question"]["number"], reply, who);
  }

 private:
  ScriptedPhone phone_;
  ResultsAddress address_;
  ResultsStore store_;
  Line line_;
};

TEST(TestLine, AQuestionHasItsOwnPictureAndTimeAndAVerdictStaysUntilTheNextPhone) {
  const std::string gate = TemporaryFolder() + "/gate";
  TestLine line(
      R"({"name": "Line", "on-failure": "continue", "line": {"serial-pattern": "SN[0-9]+", "settings": "lot"},
    "variables": {"lot": {"required": true, "default": "", "pattern": "L[0-9]"}}, "steps": [
    {"name": "Shown", "program": ["cp", ")" +
      Picture("made.png") + R"(", "${scratch}/a.png"], "picture": "${scratch}/a.png"},
    {"question": "Seen?"},
    {"name": "Late", "question": "Heard?", "seconds": 0.2},
    {"name": "Held", "program": ["sh", "-c", "until [ -e )" +
      gate + R"( ]; do sleep 0.01; done"]},
    {"question": "Own?", "picture": ")" +
      Picture("own.png") + R"("},
    {"name": "Left out", "if": "", "wait": 0}, {"wait": 0},
    {"question": "Last?"}]})");
  EXPECT_TRUE(Holds(line.Scan("XY1"), "is no serial number"));
  EXPECT_EQ(line.Scan("SN1"), "");
  EXPECT_TRUE(Holds(line.Scan("5"), "is no lot"));
  EXPECT_EQ(line.Scan("L5"), "");
  const auto picture = [&line](std::uint64_t question) {
    const auto shown = line.Slot().QuestionPicture(question);
    return shown ? std::string(shown->content.begin() + 5, shown->content.end()) : "";
  };
  const ordered_json seen = line.AwaitQuestion("Seen?");
  const std::uint64_t number = seen["run"]["question"]["number"];
  EXPECT_EQ(picture(number), "made.png");
  EXPECT_EQ(picture(number + 1), "");
  EXPECT_TRUE(seen["run"]["question"]["picture"]);
  EXPECT_EQ(line.Answer(seen, Answer::Reply::Pass, ""), "");
  EXPECT_NE(line.Answer(seen, Answer::Reply::Fail, ""), "") << "it is answered already";

  // A question whose time is over takes no answer.
  line.Await("the step after it", [](const ordered_json& view) { return view["run"]["name"] == "Held"; });
  EXPECT_EQ(line.Slot().AnswerQuestion(number + 1, Answer::Reply::Pass, ""),
            "This question is no longer open.");
  EXPECT_EQ(picture(number) + picture(number + 1), "");
  TemporaryFile("gate", "");
  const ordered_json own = line.AwaitQuestion("Own?");
  EXPECT_EQ(picture(own["run"]["question"]["number"]), "own.png");
  EXPECT_EQ(line.Answer(own, Answer::Reply::Fail, "Kim"), "");
  const ordered_json last = line.AwaitQuestion("Last?");
  EXPECT_FALSE(last["run"]["question"]["picture"]) << "the step before it has none";
  EXPECT_EQ(last["marks"], "ppfpf-p");
  EXPECT_EQ(line.Answer(last, Answer::Reply::Pass, ""), "");
  const ordered_json failures = line.AwaitVerdict("FAIL")["verdict"]["failures"];
  EXPECT_EQ(failures, ordered_json::parse(R"json([{"step": "Late", "text": "the operator did not answer"},
                                              {"step": "Own?", "text": "answered with fail (Kim)"
}])json"));

  // A wrong label is no next phone.
  EXPECT_TRUE(Holds(line.Scan("XY1"), "is no serial number"));
  EXPECT_EQ(line.Slot().View()["verdict"]["word"], "FAIL");
  EXPECT_EQ(line.Slot().Clear(), "");
  const auto wants = [&line] { return line.Slot().View()["wants"]["name"].get<std::string>(); };
  for (const auto& [name, value, refusal] : {std::tuple{"lot", std::string("7"), "is no lot"},
                                             {"other", "L7", "does not let"},
                                             {"lot", "L" + std::string(200, '7'), "too long"},
                                             {"lot", "L\x7F", "no label"}})
    EXPECT_TRUE(Holds(line.Get().Set(name, value), refusal)) << value;
  EXPECT_EQ(line.Get().Set("lot", "L6"), "");
  EXPECT_EQ(line.Get().Set("lot", ""), "");
  EXPECT_EQ(line.Scan("SN2"), "");
  EXPECT_EQ(wants(), "lot") << "the setting was taken back";
  EXPECT_EQ(line.Slot().Clear(), "");
  EXPECT_EQ(line.Get().Set("lot", "L7"), "");
  EXPECT_EQ(line.Scan("SN3"), "");
  line.AwaitQuestion("Seen?");
  EXPECT_NE(line.Slot().Clear(), "");
  for (const char* person : {"Robin", "Kim"}) EXPECT_EQ(line.Slot().Abort(person), "");
  EXPECT_EQ(line.AwaitVerdict("ABORTED")["verdict"]["failures"][0]["text"], "aborted by Robin");
  Connection results = line.Results();
  EXPECT_TRUE(Holds(FindRuns(results, {.phone = "SN3"}).at(0).variables, "\"L7\""));
}

TEST(TestLine, ANumberThatNoStepCameToGoesBackAndARetestIsAskedForAnew) {
  const Turn good = {"0000000000000000", "01000000"};
  TestLine line(
      R"({"name": "Drawing", "line": {"retest-reason": true, "serial": "number"}, "variables": {"number": {}, "address": {"draw": "addresses"}},
    "steps": [{"command": "ping"}, {"program": ["sh", "-c", "[ ${number} = SN1 ] && [ -n ${address} ]"]}]})",
      {{good.expected, "02000000"}, good, good});
  Connection results = line.Results();
  AddNumbers(results, "addresses", ParseNumberRange("00:02:5B:0A:00:00-00:02:5B:0A:00:01"));
  const auto left = [&results] { return Pools(results).at(0).left; };
  line.Scan("SN1");
  line.AwaitVerdict("FAIL");
  EXPECT_EQ(left(), 2);
  EXPECT_EQ(line.Slot().Retest(""), "");
  line.AwaitVerdict("PASS");
  EXPECT_EQ(left(), 1);
  const auto asks = [](const ordered_json& view) {
    return view["wants"].is_object() && view["wants"]["name"] == "reason for another test";
  };
  EXPECT_EQ(line.Slot().Retest(""), "");
  line.Await("the reason", asks);
  EXPECT_EQ(line.Scan("returned"), "");
  line.AwaitVerdict("PASS");
  EXPECT_TRUE(Holds(FindRuns(results, {.phone = "SN1"}).at(0).variables, "returned"));
  EXPECT_EQ(line.Slot().Retest(""), "");
  line.Await("the reason again", asks);
}

}  // namespace
