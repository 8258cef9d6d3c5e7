#include "station/line/line.h"

#include <fmt/format.h>

#include <algorithm>

#include "station/commands/errors.h"

namespace station {

namespace {

// Two slots of one port would disturb each other, and a scan must mean one slot.
void CheckDifferent(const std::vector<SlotOrder>& slots, std::string SlotOrder::*part, const char* what) {
  for (const SlotOrder& slot : slots) {
    if (std::ranges::count(slots, slot.*part, part) > 1)
      throw UsageError(fmt::format("{} {} is given to more than one slot", what, slot.*part));
  }
}

// It stands in addresses of the page.
bool IsSlotName(const std::string& name) {
  constexpr std::size_t LONGEST = 24;
  constexpr std::string_view LETTERS = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-_";
  return !name.empty() && name.size() <= LONGEST && name.find_first_not_of(LETTERS) == std::string::npos;
}

}  // namespace

Line::Line(LineOrder order, LineStore& store, const std::function<void(const std::string&)>& changed)
    : order_(std::move(order)), settings_(order_.plan, order_.variables) {
  for (const SlotOrder& slot : order_.slots) {
    if (IsSlotName(slot.name)) continue;
    throw UsageError(fmt::format("'{}' is no slot's name: up to 24 letters, digits, '-' and '_'", slot.name));
  }
  CheckDifferent(order_.slots, &SlotOrder::name, "the name");
  CheckDifferent(order_.slots, &SlotOrder::port, "the port");
  CheckDifferent(order_.slots, &SlotOrder::barcode, "the barcode");
  for (const auto& [step, took] : store.StepTimes(order_.plan.name)) times_.Add(step, took);
  for (const SlotOrder& slot : order_.slots) {
    targets_.push_back({slot.name, slot.barcode});
    slots_.emplace_back(slot, order_, settings_, store, times_,
                        [changed, name = slot.name] { changed(name); });
  }
}

Line::~Line() {
  for (LineSlot& slot : slots_) slot.RequestEnd();
}

LineSlot* Line::Find(const std::string& name) {
  const auto found =
      std::ranges::find_if(slots_, [&](const LineSlot& slot) { return slot.Order().name == name; });
  return found == slots_.end() ? nullptr : &*found;
}

Line::ScanResult Line::Scan(const std::string& typed, const std::string& chosen, const std::string& who) {
  const station::Scan scan = ParseScan(typed, targets_, chosen);
  switch (scan.meaning) {
    case station::Scan::Meaning::Refused:
      return {chosen, scan.text};
    case station::Scan::Meaning::Slot:
      return {scan.slot, ""};
    case station::Scan::Meaning::Value:
      break;
  }
  const std::string held = HeldBecause();
  if (!held.empty()) return {scan.slot, "The line is held: " + held};
  return {scan.slot, Find(scan.slot)->Enter(scan.text, who)};
}

std::string Line::Set(const std::string& name, const std::string& value) {
  const std::string refusal = settings_.Set(name, value);
  if (!refusal.empty()) return refusal;
  for (LineSlot& slot : slots_) slot.Renew();
  return "";
}

void Line::Hold(const std::string& reason) {
  const std::lock_guard lock(mutex_);
  held_because_ = reason;
}

std::string Line::HeldBecause() const {
  const std::lock_guard lock(mutex_);
  return held_because_;
}

}  // namespace station
