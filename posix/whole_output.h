// Files and standard output that are written whole, or else told as lost and remembered for the exit status.
#pragma once

#include <fmt/format.h>

#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace posix {

// The exit status of both PC programs when output was lost. It wins over every other.
constexpr int OUTPUT_LOST_STATUS = 7;

// What was to be written could not be written whole. The text names the file and the reason.
class OutputLost : public std::runtime_error {
  using std::runtime_error::runtime_error;
};

// Writes all bytes. Returns the reason if they could not be written, and otherwise nothing.
std::string WriteAll(int descriptor, std::string_view bytes);

// Writes to a new file beside it, which takes the name when it is whole and on the disk. Something that is no
// ordinary file, such as a device, is written to itself. Returns the reason, with the name, or nothing.
std::string WriteWholeFile(const std::string& path, std::string_view content);

// Says on standard error, once for each sentence, that output was lost.
void TellLostOutput(const std::string& sentence);
bool IsOutputLost();
// The sentences that were told.
std::vector<std::string> LostOutput();

// To standard output, by its descriptor and at once. Tells what is lost of it, and returns false then.
bool WriteToOutput(std::string_view bytes);
// To standard output, buffered. Tells what is lost of it, once.
void PrintText(std::string_view text);
// At the program's end: what is still buffered is written too.
void FinishOutput();

template <typename... Values>
void Print(fmt::format_string<Values...> format, Values&&... values) {
  PrintText(fmt::format(format, std::forward<Values>(values)...));
}

// A standard descriptor that the caller has closed would become a port's or a file's: it is taken by one that
// no output can be written to.
void HoldStandardDescriptors();

}  // namespace posix
