// The forms of a plan's result: for a person, for programs, and as files.
#pragma once

#include <string>
#include <vector>

#include "station/plan/runner.h"

namespace station {

// For a person at a terminal.
std::string ReportTable(const PlanResult& result);

// Everything, including the raw bytes of each exchange, as docs/report.schema.json has it. Pictures are
// named, but not included. The second form is a list for several phones.
std::string ReportJson(const PlanResult& result);
std::string ReportsJson(const std::vector<PlanResult>& results);

// JUnit's XML: one test suite with a test case for each step.
std::string ReportJunit(const PlanResult& result);

// One page that includes its styles and pictures.
std::string ReportHtml(const PlanResult& result);

// "passed", "device failure": one for each exit status, in all that is written about a run.
std::string VerdictWord(Verdict verdict);

// A line for each phone.
std::string SummaryTable(const std::vector<PlanResult>& results);
std::string SummaryJson(const std::vector<PlanResult>& results);

// Makes the folder and writes report.json, report.xml, report.html and the pictures into it. Each of several
// phones gets a folder of its own there, next to summary.json. Throws OutputLost.
void WriteReports(const std::string& folder, const std::vector<PlanResult>& results);

// A port's name as part of a file name: "/dev/ttyUSB0" is "ttyUSB0".
std::string PortFileName(const std::string& port);

// "480 ms", "12.3 s".
std::string DurationText(std::chrono::microseconds duration);

// For JSON.
double Milliseconds(std::chrono::microseconds time);

// "2024-02-29T12:30:00+01:00", local time.
std::string TimeText(std::time_t time);

// The name of an attachment's file: "07-blemish.jpg" for step 7.
std::string AttachmentFileName(std::size_t step, const Attachment& attachment);

}  // namespace station
