#include "station/link/trace.h"

#include <fmt/chrono.h>
#include <fmt/format.h>

#include "station/commands/bytes.h"
#include "station/commands/errors.h"

namespace station {

Trace::Trace(const std::string& path, const std::string& port) : file_(path, std::ios::trunc) {
  if (!file_) throw UsageError(fmt::format("cannot write the trace file {}", path));
  file_ << "# phonetest trace 1\n";
  file_ << fmt::format("# {} {:%Y-%m-%d %H:%M:%S}\n", port, fmt::localtime(std::time(nullptr)));
}

void Trace::Sent(std::span<const std::uint8_t> bytes) {
  if (!bytes.empty()) Line('>', HexText(bytes));
}

void Trace::Received(std::span<const std::uint8_t> bytes) {
  if (!bytes.empty()) Line('<', HexText(bytes));
}

void Trace::Remark(const std::string& text) {
  Line('#', text);
}

void Trace::Line(char direction, const std::string& text) {
  const std::chrono::duration<double> since = std::chrono::steady_clock::now() - start_;
  // Flushed line by line: a trace is wanted most when the program did not end as it should.
  file_ << fmt::format("{:.6f} {} {}\n", since.count(), direction, text) << std::flush;
}

}  // namespace station
