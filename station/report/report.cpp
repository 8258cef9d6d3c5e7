#include "station/report/report.h"

#include <fmt/chrono.h>
#include <fmt/format.h>

#include <algorithm>
#include <filesystem>

#include "station/commands/clean_text.h"
#include "station/commands/errors.h"

namespace station {

namespace {

std::string CountsText(const PlanResult& result) {
  std::string counts = fmt::format("{} passed", CountVerdict(result, Verdict::Passed));
  const std::pair<Verdict, const char*> others[] = {{Verdict::Failed, "failed"},
                                                    {Verdict::NoLink, "without link"},
                                                    {Verdict::PlanWrong, "with a plan error"},
                                                    {Verdict::Aborted, "aborted"},
                                                    {Verdict::OutputLost, "whose file is lost"},
                                                    {Verdict::Skipped, "not run"}};
  for (const auto& [verdict, text] : others) {
    const std::size_t count = CountVerdict(result, verdict);
    if (count != 0) counts += fmt::format(", {} {}", count, text);
  }
  return counts;
}

namespace fs = std::filesystem;

void MakeFolder(const fs::path& folder) {
  std::error_code error;
  fs::create_directories(folder, error);
  if (error) throw OutputLost(fmt::format("cannot make the folder {}: {}", folder.string(), error.message()));
}

void WriteText(const fs::path& path, const std::string& text) {
  WriteFile(path, Bytes(text.begin(), text.end()));
}

void WriteReport(const fs::path& folder, const PlanResult& result) {
  MakeFolder(folder);
  WriteText(folder / "report.json", ReportJson(result));
  WriteText(folder / "report.xml", ReportJunit(result));
  WriteText(folder / "report.html", ReportHtml(result));
  for (std::size_t i = 0; i < result.steps.size(); ++i) {
    for (const Attachment& attachment : result.steps[i].attachments) {
      WriteFile(folder / AttachmentFileName(i + 1, attachment), attachment.content);
    }
  }
}

}  // namespace

std::string DurationText(std::chrono::microseconds duration) {
  const double milliseconds = static_cast<double>(duration.count()) / 1000;
  if (milliseconds < 10) return fmt::format("{:.2f} ms", milliseconds);
  if (milliseconds < 10'000) return fmt::format("{:.0f} ms", milliseconds);
  return fmt::format("{:.1f} s", milliseconds / 1000);
}

std::string TimeText(std::time_t time) {
  // The library writes the offset as "+0100"; ISO 8601 has a colon in it.
  std::string text = fmt::format("{:%Y-%m-%dT%H:%M:%S%z}", fmt::localtime(time));
  if (text.size() > 5) text.insert(text.size() - 2, ":");
  return text;
}

std::string ReportTable(const PlanResult& result) {
  constexpr std::size_t INDENT = 30;
  std::string table = fmt::format("{} on {}\n", result.plan, result.port);
  for (std::size_t i = 0; i < result.steps.size(); ++i) {
    const StepResult& step = result.steps[i];
    const bool ran = step.verdict != Verdict::Skipped;
    table += fmt::format("{:>4}  {:<10}  {:>9}  {}\n", i + 1, VerdictText(step.verdict),
                         ran ? DurationText(step.took) : "", step.name);
    if (ran && !step.message.empty()) table += fmt::format("{:{}}{}\n", "", INDENT, step.message);
    if (step.attempts > 1) table += fmt::format("{:{}}in {} attempts\n", "", INDENT, step.attempts);
  }
  table += fmt::format("{}: {} in {}\n", VerdictText(result.verdict), CountsText(result),
                       DurationText(result.took));
  return CleanText(table);
}

std::string SummaryTable(const std::vector<PlanResult>& results) {
  std::string table;
  for (const PlanResult& result : results) {
    std::string line = fmt::format("{:<10}  {:<20}  {} in {}", VerdictText(result.verdict), result.port,
                                   CountsText(result), DurationText(result.took));
    const auto broken = std::ranges::find_if(result.steps, [](const StepResult& step) {
      return step.verdict != Verdict::Passed && step.verdict != Verdict::Skipped;
    });
    if (broken != result.steps.end()) line += fmt::format("; first: {}: {}", broken->name, broken->message);
    table += line + "\n";
  }
  return CleanText(table);
}

std::string PortFileName(const std::string& port) {
  std::string name = port.starts_with("/dev/") ? port.substr(5) : port;
  for (char& character : name) {
    if (character == '/' || character == ':') character = '-';
  }
  return name;
}

std::string AttachmentFileName(std::size_t step, const Attachment& attachment) {
  return fmt::format("{:02}-{}", step, attachment.name);
}

void WriteReports(const std::string& folder, const std::vector<PlanResult>& results) {
  if (results.size() == 1) {
    WriteReport(folder, results.front());
    return;
  }
  for (const PlanResult& result : results) WriteReport(fs::path(folder) / PortFileName(result.port), result);
  WriteText(fs::path(folder) / "summary.json", SummaryJson(results));
}

}  // namespace station
