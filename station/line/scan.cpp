#include "station/line/scan.h"

#include <algorithm>

namespace station {

namespace {

// A barcode holds a few dozen characters; this is more than any label has.
constexpr std::size_t LONGEST = 200;

std::string WithoutBlanks(const std::string& text) {
  constexpr const char* BLANKS = " \t\r\n";
  const std::size_t from = text.find_first_not_of(BLANKS);
  if (from == std::string::npos) return "";
  return text.substr(from, text.find_last_not_of(BLANKS) - from + 1);
}

bool HasControlCharacter(const std::string& text) {
  return std::ranges::any_of(text, [](unsigned char c) { return c < ' ' || c == 0x7F; });
}

}  // namespace

bool IsLabelText(const std::string& text) {
  return text.size() <= LONGEST && !HasControlCharacter(text);
}

Scan ParseScan(const std::string& typed, const std::vector<ScanTarget>& slots, const std::string& chosen) {
  const std::string text = WithoutBlanks(typed);
  if (text.empty()) return {.text = "Nothing was scanned."};
  if (!IsLabelText(text)) return {.text = "This is no code that a label has. Scan it again."};
  const auto labelled = std::ranges::find(slots, text, &ScanTarget::barcode);
  if (labelled != slots.end()) return {.meaning = Scan::Meaning::Slot, .slot = labelled->name};
  const auto target = std::ranges::find(slots, chosen, &ScanTarget::name);
  if (target != slots.end()) return {.meaning = Scan::Meaning::Value, .slot = target->name, .text = text};
  if (slots.size() == 1) return {.meaning = Scan::Meaning::Value, .slot = slots[0].name, .text = text};
  return {.text = "Choose a slot first: scan its barcode or click on it."};
}

}  // namespace station
