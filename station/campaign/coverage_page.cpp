// The coverage of a plan as a page that needs no other file.
#include <fmt/format.h>

#include <pugixml.hpp>
#include <sstream>

#include "station/campaign/coverage.h"
#include "station/commands/clean_text.h"

namespace station {

namespace {

constexpr const char* STYLE = R"(
:root { color-scheme: light dark; --line: #8884; --good: #1a7f37; --bad: #cf222e; --idle: #777; }
body { font: 15px/1.45 system-ui, sans-serif; max-width: 70rem; margin: 2rem auto; padding: 0 1rem; }
table { border-collapse: collapse; width: 100%; margin: 1rem 0 2rem; }
td, th { border-top: 1px solid var(--line); padding: .3rem .6rem; text-align: left; vertical-align: top; }
td.number { text-align: right; font-variant-numeric: tabular-nums; }
.noticed { color: var(--good); } .unnoticed { color: var(--bad); font-weight: 600; } .explained { color: var(--idle); }
@media print { :root { color-scheme: light; } body { font-size: 10pt; max-width: none; margin: 0; } }
)";

pugi::xml_node Add(pugi::xml_node parent, const char* tag, const std::string& text = "",
                   const char* style = "") {
  pugi::xml_node node = parent.append_child(tag);
  if (*style != '\0') node.append_attribute("class") = style;
  if (!text.empty()) node.text().set(CleanText(text).c_str());
  return node;
}

pugi::xml_node AddTable(pugi::xml_node body, std::initializer_list<const char*> heads) {
  pugi::xml_node table = Add(body, "table");
  pugi::xml_node row = Add(table, "tr");
  for (const char* head : heads) Add(row, "th", head);
  return table;
}

void AddFault(pugi::xml_node table, const Coverage::OfFault& one) {
  pugi::xml_node row = Add(table, "tr");
  Add(row, "td", one.trial.fault);
  const char* what = one.trial.noticed ? "noticed" : one.IsHole() ? "unnoticed" : "explained";
  Add(row, "td", what, what);
  pugi::xml_node by = Add(row, "td");
  if (!one.reason.empty()) Add(by, "div", one.reason);
  for (const TroubledStep& step : one.trial.steps) {
    Add(by, "div", fmt::format("{}: {}", step.name, step.message.empty() ? step.verdict : step.message));
  }
}

}  // namespace

std::string CoveragePage(const Coverage& coverage) {
  pugi::xml_document document;
  document.append_child(pugi::node_doctype).set_value("html");
  pugi::xml_node html = document.append_child("html");
  html.append_attribute("lang") = "en";
  pugi::xml_node head = Add(html, "head");
  Add(head, "meta").append_attribute("charset") = "utf-8";
  Add(head, "title", "Fault campaign: " + coverage.plan);
  Add(head, "style").text().set(STYLE);
  pugi::xml_node body = Add(html, "body");
  Add(body, "h1", "Fault campaign: " + coverage.plan);
  Add(body, "p",
      fmt::format("{} faults: {} noticed, {} explained, {} unnoticed.", coverage.faults.size(),
                  coverage.Noticed(), coverage.Explained(), coverage.Holes()));
  Add(body, "p", fmt::format("Plan {}, SHA-256 {}", coverage.plan_file, coverage.plan_sha256), "explained");
  if (coverage.untried > 0)
    Add(body, "p", fmt::format("{} faults were not tried.", coverage.untried), "unnoticed");
  Add(body, "h2", "Faults");
  pugi::xml_node faults = AddTable(body, {"fault", "result", "noticed by, or reason"});
  // The holes first.
  for (const bool holes : {true, false}) {
    for (const Coverage::OfFault& one : coverage.faults) {
      if (one.IsHole() == holes) AddFault(faults, one);
    }
  }
  Add(body, "h2", "Steps");
  pugi::xml_node steps = AddTable(body, {"faults noticed", "by this step alone", "step"});
  for (const Coverage::OfStep& step : coverage.steps) {
    pugi::xml_node row = Add(steps, "tr");
    Add(row, "td", std::to_string(step.noticed), "number");
    Add(row, "td", std::to_string(step.alone), "number");
    Add(row, "td", step.name);
  }
  std::ostringstream page;
  document.save(page, "",
                pugi::format_raw | pugi::format_no_declaration | pugi::format_no_empty_element_tags);
  return page.str();
}

}  // namespace station
