// Simulated phones in a line's slots, for demonstrations and for learning: whoever scans a serial number puts
// that phone in. A phone that comes again has what was written to it before.
#pragma once

#include <filesystem>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "station/line/line_order.h"
#include "station/plan/host_program.h"
#include "station/plan/phone_run.h"

namespace station {

class SimulatedSlots {
 public:
  // `phonesim` is the program. Nothing is started yet. Throws UsageError.
  SimulatedSlots(std::string phonesim, std::size_t count);
  SimulatedSlots(const SimulatedSlots&) = delete;
  SimulatedSlots& operator=(const SimulatedSlots&) = delete;
  // Stops the phones.
  ~SimulatedSlots();

  // "1", "2", …, whose ports follow the phone that is in them.
  const std::vector<SlotOrder>& Orders() const {
    return orders_;
  }

  // Stops the slot's phone and boots the one with this serial number, unless it is there already. Throws
  // PlanError if it does not start.
  void Insert(const std::string& slot, const std::string& serial);

  // Starts the page that shows the simulated phones, so that each slot's order has its phone's. Throws
  // PlanError.
  void ShowPhones();

  // Some of the phones have a defect, each always the same, chosen by its serial number: off by default.
  void SeedDefects() {
    defects_ = true;
  }

  // 128 bytes of factory information, as a plan's step wants it from a file.
  std::string FactoryInformation() const;

 private:
  std::string Name(const std::string& slot) const;
  bool IsIn(const std::string& slot, const std::string& serial);
  void Command(const std::string& slot, std::vector<std::string> words) const;
  void GiveDefect(const std::string& slot, const std::string& serial) const;

  std::string phonesim_;
  ScratchFolder folder_;
  std::vector<SlotOrder> orders_;
  std::optional<HostProgram> panel_;
  bool defects_ = false;
  std::mutex mutex_;
  std::map<std::string, std::string> inserted_;  // the serial numbers, by slot
};

}  // namespace station
