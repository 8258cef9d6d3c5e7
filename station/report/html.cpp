#include <fmt/format.h>

#include <algorithm>
#include <map>

#include "station/commands/clean_text.h"
#include "station/report/phone_facts.h"
#include "station/report/report.h"

namespace station {

namespace {

constexpr auto REPLACE = nlohmann::ordered_json::error_handler_t::replace;

constexpr const char* STYLE = R"(
:root { color-scheme: light dark; --line: #8884; --good: #1a7f37; --bad: #cf222e; --idle: #777; }
body { font: 15px/1.45 system-ui, sans-serif; max-width: 64rem; margin: 2rem auto; padding: 0 1rem; }
h1 { font-size: 1.5rem; margin: 0 0 .2rem; }
.verdict { display: inline-block; padding: .1rem .7rem; border-radius: 1rem; color: #fff; font-weight: 600; }
.good { background: var(--good); } .bad { background: var(--bad); } .idle { background: var(--idle); }
table { border-collapse: collapse; width: 100%; margin-top: 1rem; }
td, th { border-top: 1px solid var(--line); padding: .45rem .6rem; text-align: left; vertical-align: top; }
td.number, td.time { text-align: right; white-space: nowrap; font-variant-numeric: tabular-nums; }
.message { color: var(--bad); font-weight: 600; }
.facts { color: var(--idle); margin: .3rem 0; }
dl { display: grid; grid-template-columns: max-content 1fr; gap: .1rem 1rem; margin: .3rem 0; }
dt { color: var(--idle); } dd { margin: 0; white-space: pre-wrap; overflow-wrap: anywhere; }
pre { font-size: .8rem; white-space: pre-wrap; overflow-wrap: anywhere; margin: .2rem 0 .6rem; }
figure { display: inline-block; margin: .5rem .8rem .3rem 0; }
figure img { max-width: 20rem; max-height: 20rem; border: 1px solid var(--line); }
figcaption { color: var(--idle); font-size: .85rem; }
summary { cursor: pointer; color: var(--idle); }
table.limits { width: auto; margin: .3rem 0; } .limits td, .limits th { padding: .1rem .8rem .1rem 0; }
.broken { color: var(--bad); font-weight: 600; }
@media print {
  :root { color-scheme: light; }
  body { font-size: 10pt; max-width: none; margin: 0; padding: 0; }
  .verdict { color: inherit; background: none; padding: 0; }
  tr.step, figure, .failures li { break-inside: avoid; }
  thead { display: table-header-group; }
  details { display: none; }
  a { color: inherit; text-decoration: none; }
}
)";

// Clean text, with entities for the five special characters.
std::string Escaped(std::string_view text) {
  std::string escaped;
  for (const char character : CleanText(text)) {
    switch (character) {
      case '&':
        escaped += "&amp;";
        break;
      case '<':
        escaped += "&lt;";
        break;
      case '>':
        escaped += "&gt;";
        break;
      case '"':
        escaped += "&quot;";
        break;
      case '\'':
        escaped += "&apos;";
        break;
      default:
        escaped += character;
    }
  }
  return escaped;
}

// RFC 4648, with padding.
std::string Base64(std::span<const std::uint8_t> bytes) {
  constexpr char DIGITS[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  std::string text;
  text.reserve((bytes.size() + 2) / 3 * 4);
  for (std::size_t i = 0; i < bytes.size(); i += 3) {
    const std::size_t left = bytes.size() - i;
    const std::uint32_t group = std::uint32_t{bytes[i]} << 16 |
                                (left > 1 ? std::uint32_t{bytes[i + 1]} << 8 : 0) |
                                (left > 2 ? std::uint32_t{bytes[i + 2]} : 0);
    text += DIGITS[group >> 18 & 63];
    text += DIGITS[group >> 12 & 63];
    text += left > 1 ? DIGITS[group >> 6 & 63] : '=';
    text += left > 2 ? DIGITS[group & 63] : '=';
  }
  return text;
}

std::string Colour(Verdict verdict) {
  if (verdict == Verdict::Passed) return "good";
  return verdict == Verdict::Skipped ? "idle" : "bad";
}

std::string Badge(Verdict verdict) {
  return fmt::format("<span class=\"verdict {}\">{}</span>", Colour(verdict), VerdictText(verdict));
}

// Every limit with the value that it was compared with.
std::string LimitsTable(const std::vector<JudgedLimit>& limits, const std::vector<Reading>& readings) {
  if (limits.empty()) return "";
  std::string html = "<table class=\"limits\"><tr><th>reading</th><th>value</th><th>limit</th><th></th></tr>";
  for (const JudgedLimit& limit : limits) {
    const auto reading = std::ranges::find(readings, limit.reading, &Reading::name);
    const std::string raw = limit.value.is_null() ? "" : limit.value.dump(-1, ' ', false, REPLACE);
    const std::string value = reading != readings.end() && !limit.value.is_null() ? reading->text : raw;
    const bool broken = limit.verdict != Verdict::Passed && limit.verdict != Verdict::Skipped;
    html += fmt::format("<tr{}><td>{}</td><td>{} {}</td><td>{}</td><td>{}</td></tr>",
                        broken ? " class=\"broken\"" : "", Escaped(limit.reading), Escaped(value),
                        Escaped(limit.unit), Escaped(limit.text),
                        limit.verdict == Verdict::Skipped ? "not judged" : VerdictText(limit.verdict));
  }
  return html + "</table>";
}

// The readings without those that stand in the table of limits.
std::string ReadingsList(const StepResult& step) {
  std::string html;
  for (const Reading& reading : step.readings) {
    if (std::ranges::find(step.limits, reading.name, &JudgedLimit::reading) != step.limits.end()) continue;
    const std::string text = reading.text.starts_with('\n') ? reading.text.substr(1) : reading.text;
    const bool drawing = text.find('\n') != std::string::npos;
    const std::string shown = drawing ? "<pre>" + Escaped(text) + "</pre>" : Escaped(text);
    html += fmt::format("<dt>{}</dt><dd>{} {}</dd>", Escaped(reading.name), shown, Escaped(reading.unit));
  }
  return html.empty() ? "" : "<dl>" + html + "</dl>";
}

// The pictures of a whole plan, each shown where it comes first.
class Gallery {
 public:
  std::string Show(std::size_t number, const std::vector<Attachment>& attachments) {
    std::string html;
    for (const Attachment& attachment : attachments) {
      const auto [first, fresh] = shown_.emplace(attachment.content, number);
      if (!fresh) {
        html += fmt::format(
            "<div class=\"facts\">{}: the same picture as in <a href=\"#step-{}\">step {}</a></div>",
            Escaped(attachment.name), first->second, first->second);
        continue;
      }
      html += fmt::format(
          "<figure><img alt=\"{0}\" src=\"data:{1};base64,{2}\"><figcaption>{0}, {3} bytes</figcaption>"
          "</figure>",
          Escaped(attachment.name), attachment.type, Base64(attachment.content), attachment.content.size());
    }
    return html;
  }

 private:
  std::map<Bytes, std::size_t> shown_;  // the step's number, from 1
};

std::string ProgramLine(const ProgramRecord& program) {
  std::string line = fmt::format("{}", fmt::join(program.words, " "));
  if (program.exit_status) line += fmt::format(" (exit status {})", *program.exit_status);
  if (program.signal) line += fmt::format(" (ended by signal {})", *program.signal);
  return line;
}

std::string ExchangesList(const Transcript& transcript) {
  if (transcript.count == 0) return "";
  const std::size_t left_out = transcript.count - transcript.kept.size();
  std::string html = fmt::format("<details><summary>{} exchange{}{}</summary>", transcript.count,
                                 transcript.count == 1 ? "" : "s",
                                 left_out == 0 ? "" : fmt::format(", without the first {}", left_out));
  for (const Exchange& exchange : transcript.kept) {
    html += fmt::format("<div>{}, at {}, took {}</div><pre>&gt; {}\n&lt; {}</pre>", Escaped(exchange.name),
                        DurationText(exchange.started), DurationText(exchange.took), HexText(exchange.sent),
                        HexText(exchange.received));
  }
  return html + "</details>";
}

std::string Facts(const std::string& text) {
  return text.empty() ? "" : fmt::format("<div class=\"facts\">{}</div>", Escaped(text));
}

std::string Row(std::size_t number, const StepResult& step, Gallery& gallery) {
  const bool skipped = step.verdict == Verdict::Skipped;
  std::string html = fmt::format(
      "<tr class=\"step\" id=\"step-{0}\"><td class=\"number\">{0}</td><td>{1}</td><td "
      "class=\"time\">{2}</td><td>{3}",
      number, Badge(step.verdict), skipped ? "" : DurationText(step.took), Escaped(step.name));
  if (!step.message.empty()) {
    html += fmt::format("<div class=\"{}\">{}</div>", skipped ? "facts" : "message", Escaped(step.message));
  }
  if (step.command != step.name) html += Facts(step.command);
  if (step.question != step.name) html += Facts(step.question);
  if (step.answer && !step.answer->by.empty()) {
    html += Facts(fmt::format("answered {}, {}, {}", ReplyWord(*step.answer), step.answer->by,
                              TimeText(step.answer->at)));
  }
  if (step.program) html += Facts(ProgramLine(*step.program));
  if (step.attempts > 1) html += Facts(fmt::format("{} attempts", step.attempts));
  html += LimitsTable(step.limits, step.readings) + ReadingsList(step);
  html += gallery.Show(number, step.attachments) + ExchangesList(step.transcript);
  return html + "</td></tr>\n";
}

// What did not pass, with links to the steps; nothing if all did.
std::string Failures(const PlanResult& result) {
  std::string html;
  for (std::size_t i = 0; i < result.steps.size(); ++i) {
    const StepResult& step = result.steps[i];
    if (step.verdict == Verdict::Passed || step.verdict == Verdict::Skipped) continue;
    html += fmt::format("<li>{0} <a href=\"#step-{1}\">step {1}, {2}</a>: {3}</li>\n", Badge(step.verdict),
                        i + 1, Escaped(step.name), Escaped(step.message));
  }
  return html.empty() ? "" : "<h2>What did not pass</h2>\n<ul class=\"failures\">\n" + html + "</ul>\n";
}

std::string RunFacts(const PlanResult& result) {
  std::string html;
  const auto add = [&html](const std::string& name, const std::string& value) {
    if (!value.empty()) html += fmt::format("<dt>{}</dt><dd>{}</dd>", Escaped(name), Escaped(value));
  };
  const PhoneFacts facts = FactsOfPhone(result);
  add("identity", facts.identity);
  for (const auto& [name, text] : facts.versions) add(name + " version", text);
  add("station", result.origin.station);
  add("operator", result.origin.person);
  add("port", result.port);
  add("slot", result.slot);
  if (result.executable)
    add("simulated phone", result.executable->path + ", " + result.executable->processor);
  add("plan", fmt::format("{}, SHA-256 {}", result.plan_file, result.plan_sha256));
  add("tool", "phonetest " + result.origin.tool_version);
  add("started", TimeText(result.started));
  add("ended", TimeText(result.ended));
  add("took", DurationText(result.took));
  add("steps", fmt::format("{} passed of {}, {} not run", CountVerdict(result, Verdict::Passed),
                           result.steps.size(), CountVerdict(result, Verdict::Skipped)));
  for (const auto& [name, value] : result.variables) add("variable " + name, value);
  return "<dl>" + html + "</dl>\n";
}

}  // namespace

std::string ReportHtml(const PlanResult& result) {
  std::string html = fmt::format(
      "<!DOCTYPE html>\n<html lang=\"en\">\n<head>\n<meta charset=\"utf-8\">\n"
      "<meta name=\"viewport\" content=\"width=device-width\">\n<title>{0}: "
      "{1}</title>\n<style>{2}</style>\n</head>\n"
      "<body>\n<h1>{0}</h1>\n<p>{3}</p>\n",
      Escaped(result.plan), VerdictText(result.verdict), STYLE, Badge(result.verdict));
  html += Failures(result) + RunFacts(result);
  html += "<table>\n<thead><tr><th></th><th>verdict</th><th>time</th><th>step</th></tr></thead>\n<tbody>\n";
  Gallery gallery;
  for (std::size_t i = 0; i < result.steps.size(); ++i) html += Row(i + 1, result.steps[i], gallery);
  return html + "</tbody>\n</table>\n</body>\n</html>\n";
}

}  // namespace station
