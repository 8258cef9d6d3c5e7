// The faults that a campaign tries: what a simulated phone offers, and what can go wrong in each thing that
// the server did during a good run.
#pragma once

#include <string>
#include <vector>

namespace station {

struct Fault {
  std::string name;                // "open /dev/fb/0 ENODEV", "camera row 150"
  std::vector<std::string> words;  // the command for phonesim
};

// From a journal's lines of JSON: each device, file and program refuses to open or start, is missing, or ends
// too early, and each driver request fails. The first `skipped` lines are the phone's start.
std::vector<Fault> FaultsOfJournal(const std::vector<std::string>& lines, std::size_t skipped);

// From what `phonesim defects` prints: a JSON list of words in each line.
std::vector<Fault> FaultsOfModels(const std::string& defects);

// Whether the name fits the pattern, in which "*" stands for any text and "?" for any character.
bool FitsPattern(const std::string& pattern, const std::string& name);

}  // namespace station
