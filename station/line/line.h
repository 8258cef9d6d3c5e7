// The slots of one station, and what a scan does to them.
#pragma once

#include <functional>
#include <list>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "station/line/line_order.h"
#include "station/line/line_store.h"
#include "station/line/scan.h"
#include "station/line/slot.h"
#include "station/line/step_times.h"

namespace station {

class Line {
 public:
  // `changed` gets a slot's name, from any thread. The store must outlive the line. Throws UsageError if two
  // slots have the same name, port or barcode.
  Line(LineOrder order, LineStore& store, const std::function<void(const std::string&)>& changed);
  // Aborts what runs, on all slots at once, and waits for it.
  ~Line();

  const LineOrder& Order() const {
    return order_;
  }
  std::list<LineSlot>& Slots() {
    return slots_;
  }
  // Returns null if there is no such slot.
  LineSlot* Find(const std::string& name);

  struct ScanResult {
    std::string slot;     // that is chosen from now on; empty if none is
    std::string refusal;  // a sentence; empty if the scan was taken
  };
  // `chosen` is the slot that is chosen on the page where it was scanned; it may be empty.
  ScanResult Scan(const std::string& typed, const std::string& chosen, const std::string& who);

  const LineSettings& Settings() const {
    return settings_;
  }
  // As LineSettings::Set.
  std::string Set(const std::string& name, const std::string& value);

  // No phone is started while the line is held. The line manager's reason is what a scan is answered with; an
  // empty reason lets the line go on.
  void Hold(const std::string& reason);
  std::string HeldBecause() const;

 private:
  const LineOrder order_;
  LineSettings settings_;
  StepTimes times_;
  std::vector<ScanTarget> targets_;
  mutable std::mutex mutex_;
  std::string held_because_;
  std::list<LineSlot> slots_;
};

}  // namespace station
