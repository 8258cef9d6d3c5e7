// What a line is started with.
#pragma once

#include <chrono>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "station/plan/outline.h"
#include "station/plan/runner.h"

namespace station {

struct SlotOrder {
  std::string name;     // "A": on the card
  std::string port;     // of the phone that is put there
  std::string barcode;  // on the label that chooses the slot
  std::string page{};   // where the phone itself is shown, if it is a simulated one
};

struct LineOrder {
  std::vector<SlotOrder> slots;
  PlanOutline plan;
  std::map<std::string, std::string>
      variables;  // the same for every phone; LineSettings has them from then on
  std::string station;
  std::string tool_version;
  std::optional<std::chrono::milliseconds> answer_time;
  std::size_t reserve = 0;  // numbers that this station keeps of each pool for times without the database
  // Called with slot and serial number in the slot's thread before a run; simulated slots put the phone in
  // then. May be empty.
  std::function<void(const std::string& slot, const std::string& serial)> insert;
  // The server of the simulated phone at this port; nothing if it is another phone. May be empty.
  std::function<std::optional<Executable>(const std::string& port)> executable;
};

}  // namespace station
