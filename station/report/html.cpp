#include <fmt/format.h>

#include "station/commands/clean_text.h"
#include "station/report/phone_facts.h"
#include "station/report/report.h"

namespace station {

namespace {

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

std::string ReadingsList(const std::vector<Reading>& readings) {
  if (readings.empty()) return "";
  std::string html = "<dl>";
  for (const Reading& reading : readings) {
    const std::string text = reading.text.starts_with('\n') ? reading.text.substr(1) : reading.text;
    const bool drawing = text.find('\n') != std::string::npos;
    const std::string shown = drawing ? "<pre>" + Escaped(text) + "</pre>" : Escaped(text);
    html += fmt::format("<dt>{}</dt><dd>{}</dd>", Escaped(reading.name), shown);
  }
  return html + "</dl>";
}

std::string Figures(const std::vector<Attachment>& attachments) {
  std::string html;
  for (const Attachment& attachment : attachments) {
    html += fmt::format(
        "<figure><img alt=\"{0}\" src=\"data:{1};base64,{2}\"><figcaption>{0}, {3} bytes</figcaption>"
        "</figure>",
        Escaped(attachment.name), attachment.type, Base64(attachment.content), attachment.content.size());
  }
  return html;
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

std::string Row(std::size_t number, const StepResult& step) {
  std::string html =
      fmt::format("<tr><td class=\"number\">{}</td><td>{}</td><td class=\"time\">{}</td><td>{}", number,
                  Badge(step.verdict), step.verdict == Verdict::Skipped ? "" : DurationText(step.took),
                  Escaped(step.name));
  if (!step.message.empty()) {
    html += fmt::format("<div class=\"{}\">{}</div>", step.verdict == Verdict::Skipped ? "facts" : "message",
                        Escaped(step.message));
  }
  if (!step.command.empty() && step.command != step.name) {
    html += fmt::format("<div class=\"facts\">{}</div>", Escaped(step.command));
  }
  if (step.attempts > 1) html += fmt::format("<div class=\"facts\">{} attempts</div>", step.attempts);
  html += ReadingsList(step.readings) + Figures(step.attachments) + ExchangesList(step.transcript);
  return html + "</td></tr>\n";
}

}  // namespace

std::string ReportHtml(const PlanResult& result) {
  std::string html = fmt::format(
      "<!DOCTYPE html>\n<html lang=\"en\">\n<head>\n<meta charset=\"utf-8\">\n"
      "<meta name=\"viewport\" content=\"width=device-width\">\n<title>{0}: "
      "{1}</title>\n<style>{2}</style>\n</head>\n"
      "<body>\n<h1>{0}</h1>\n<p>{3}</p>\n",
      Escaped(result.plan), VerdictText(result.verdict), STYLE, Badge(result.verdict));
  html += fmt::format("<dl><dt>port</dt><dd>{}</dd><dt>started</dt><dd>{}</dd><dt>took</dt><dd>{}</dd>",
                      Escaped(result.port), TimeText(result.started), DurationText(result.took));
  html += fmt::format("<dt>steps</dt><dd>{} passed of {}</dd>", CountVerdict(result, Verdict::Passed),
                      result.steps.size());
  for (const auto& [name, value] : result.variables) {
    if (!value.empty()) html += fmt::format("<dt>{}</dt><dd>{}</dd>", Escaped(name), Escaped(value));
  }
  html += "</dl>\n<table>\n<tr><th></th><th>verdict</th><th>time</th><th>step</th></tr>\n";
  for (std::size_t i = 0; i < result.steps.size(); ++i) html += Row(i + 1, result.steps[i]);
  return html + "</table>\n</body>\n</html>\n";
}

}  // namespace station
