#include "station/line/scan.h"

#include <fmt/format.h>

#include <algorithm>

#include "station/commands/clean_text.h"
#include "station/plan/variable_checks.h"

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

std::string FaultInWords(nlohmann::json checks, const std::string& value) {
  if (checks.value(PATTERN_HELP, "") == "") {
    const std::string first = VariableFault(checks, value);
    checks.erase("pattern");
    const std::string other = VariableFault(checks, value);
    return first.empty() || !other.empty() ? other : "it does not look like one";
  }
  return VariableFault(checks, value);
}

// Also Unicode's own: those that turn the direction of all that follows would make another sentence of ours.
bool HasControlCharacter(const std::string& text) {
  static constexpr const char* TURNING[] = {"\u200E", "\u200F", "\u2028", "\u2029", "\u202A",
                                            "\u202B", "\u202C", "\u202D", "\u202E", "\u2066",
                                            "\u2067", "\u2068", "\u2069", "\uFEFF"};
  return std::ranges::any_of(text, [](unsigned char c) { return c < ' ' || c == 0x7F; }) ||
         std::ranges::any_of(TURNING, [&](const char* one) { return text.find(one) != std::string::npos; });
}

}  // namespace

bool IsLabelText(const std::string& text) {
  return text.size() <= LONGEST && !HasControlCharacter(text);
}

std::string WrongValue(const std::string& field, const nlohmann::json& checks, const std::string& value) {
  const std::string fault = FaultInWords(checks, value);
  return fault.empty() ? "" : fmt::format("“{}” is no {}: {}", CleanText(value), CleanText(field), fault);
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
