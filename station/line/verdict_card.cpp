#include "station/line/verdict_card.h"

#include "station/commands/clean_text.h"

namespace station {

namespace {

struct Face {
  const char* word;
  const char* kind;
  const char* sign;
};

Face FaceOf(Verdict verdict) {
  switch (verdict) {
    case Verdict::Passed:
      return {"PASS", "pass", "✓"};
    case Verdict::Failed:
      return {"FAIL", "fail", "✗"};
    case Verdict::NoLink:
      return {"NO PHONE", "fail", "✗"};
    case Verdict::Aborted:
      return {"ABORTED", "other", "■"};
    case Verdict::Incomplete:
      return {"INCOMPLETE", "other", "!"};
    case Verdict::OutputLost:
      return {"OUTPUT LOST", "other", "!"};
    case Verdict::PlanWrong:
    case Verdict::Skipped:
      return {"PLAN ERROR", "other", "!"};
  }
  return {"", "other", ""};
}

}  // namespace

nlohmann::ordered_json VerdictCard(const LineRun& run) {
  const Face face = FaceOf(run.verdict);
  nlohmann::ordered_json failures = nlohmann::ordered_json::array();
  for (const LineRun::Failure& failure : run.failures) {
    failures.push_back({{"step", CleanText(failure.step)}, {"text", CleanText(failure.message)}});
  }
  return {{"word", face.word}, {"kind", face.kind},
          {"sign", face.sign}, {"failures", std::move(failures)},
          {"run", run.id},     {"problem", CleanText(run.problem)}};
}

nlohmann::ordered_json RefusalCard(const std::string& sentence) {
  return {{"word", "NOT TESTED"},
          {"kind", "other"},
          {"sign", "!"},
          {"failures", {{{"step", ""}, {"text", CleanText(sentence)}}}},
          {"run", ""},
          {"problem", ""}};
}

}  // namespace station
