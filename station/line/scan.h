// What a scanned text means on the line: a scanner types a code and sends Enter, and the code alone
// must tell what it is.
#pragma once

#include <nlohmann/json.hpp>
#include <string>
#include <vector>

namespace station {

// A slot as scans see it.
struct ScanTarget {
  std::string name;
  std::string barcode;  // on a label at the slot
};

struct Scan {
  enum class Meaning { Slot, Value, Refused };

  Meaning meaning = Meaning::Refused;
  std::string slot = {};  // that is chosen now, or that gets the value
  std::string text = {};  // the value without the blanks around it, or why the scan is refused
};

// False for what no label has: more than a few dozen characters, or control characters.
bool IsLabelText(const std::string& text);

// Why the value is none that the field can have, in a sentence without its point, or nothing. `checks` is
// what a plan's variable declares. The person at the page sees words, never a regular expression.
std::string WrongValue(const std::string& field, const nlohmann::json& checks, const std::string& value);

// A slot's barcode chooses the slot, whatever is chosen. Anything else is the chosen slot's next value.
// `chosen` may be empty: a single slot needs no choice.
Scan ParseScan(const std::string& typed, const std::vector<ScanTarget>& slots, const std::string& chosen);

}  // namespace station
