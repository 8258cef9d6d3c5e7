#include <fmt/format.h>

#include <filesystem>
#include <fstream>

#include "station/commands/errors.h"
#include "station/report/report.h"

namespace station {

namespace {

namespace fs = std::filesystem;

void MakeFolder(const fs::path& folder) {
  std::error_code error;
  fs::create_directories(folder, error);
  if (error) throw UsageError(fmt::format("cannot make the folder {}: {}", folder.string(), error.message()));
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
