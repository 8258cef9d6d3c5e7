#include "station/line/simulated_slots.h"

#include <fmt/format.h>
#include <unistd.h>

#include <fstream>
#include <functional>

#include "station/commands/errors.h"

namespace station {

namespace {

namespace fs = std::filesystem;

constexpr std::chrono::seconds PATIENCE{30};

// What a factory meets, in words of `phonesim`. One phone in SHARE has one of them.
const std::vector<std::vector<std::string>> DEFECTS = {
    {"fault", "request", "/dev/misc/rtc", "error=EIO", "times=always"},
    {"modem", "sim", "off"},
    {"card", "remove"},
    {"radio", "silence"},
    {"bluetooth", "all", "none"},
    {"camera", "row", "700"},
};
constexpr std::size_t SHARE = 5;

std::size_t Hash(const std::string& text) {
  // The same on every computer, so that a phone keeps its defect.
  std::size_t hash = 14695981039346656037u;
  for (const unsigned char c : text) hash = (hash ^ c) * 1099511628211u;
  return hash >> 20;
}

}  // namespace

SimulatedSlots::SimulatedSlots(std::string phonesim, std::size_t count) : phonesim_(std::move(phonesim)) {
  for (std::size_t i = 1; i <= count; ++i) {
    const std::string name = std::to_string(i);
    orders_.push_back({name, folder_.Path() + "/slot-" + name, "SLOT-" + name});
  }
  std::ofstream(FactoryInformation())
      << std::string("SN0601234LINE3 SHIFTHW02060115simulated phone") + std::string(128 - 45, '\0');
}

SimulatedSlots::~SimulatedSlots() {
  for (const auto& [slot, serial] : inserted_) {
    try {
      Command(slot, {"stop"});
    } catch (const std::exception&) {
      // It has ended by itself.
    }
  }
}

std::string SimulatedSlots::FactoryInformation() const {
  return folder_.Path() + "/factory-info";
}

void SimulatedSlots::ShowPhones() {
  const std::string line =
      panel_.emplace(std::vector<std::string>{phonesim_, "--ends-with", std::to_string(getpid()), "panel"})
          .AwaitLine(PATIENCE);
  // "panel: http://127.0.0.1:43215/?token=…"
  const std::size_t address = line.find("http");
  const std::size_t token = line.find("?token=");
  if (address == std::string::npos || token == std::string::npos)
    throw PlanError(fmt::format("the simulated phones' page did not start: {}", panel_->Output()));
  for (SlotOrder& order : orders_) {
    order.page = line.substr(address, token - address) + "phone/" + Name(order.name) + line.substr(token);
  }
}

std::string SimulatedSlots::Name(const std::string& slot) const {
  return fmt::format("line-{}-{}", getpid(), slot);
}

void SimulatedSlots::Command(const std::string& slot, std::vector<std::string> words) const {
  words.insert(words.begin(), {phonesim_, "--name", Name(slot)});
  HostProgram program(words);
  const std::string failure = program.Wait(PATIENCE);
  if (!failure.empty()) throw PlanError(fmt::format("the simulated phone: {}", failure));
}

// A phone may have ended by itself.
bool SimulatedSlots::IsIn(const std::string& slot, const std::string& serial) {
  {
    const std::lock_guard lock(mutex_);
    const auto found = inserted_.find(slot);
    if (found == inserted_.end() || found->second != serial) return false;
  }
  try {
    Command(slot, {"state"});
    return true;
  } catch (const PlanError&) {
    return false;
  }
}

void SimulatedSlots::Insert(const std::string& slot, const std::string& serial) {
  if (IsIn(slot, serial)) return;
  try {
    Command(slot, {"stop"});
  } catch (const PlanError&) {
    // None was there.
  }
  {
    // If the next one does not start, the slot is empty: also for the phone that was in it before.
    const std::lock_guard lock(mutex_);
    inserted_.erase(slot);
  }
  const fs::path state = fs::path(folder_.Path()) / fmt::format("phone-{:x}", Hash(serial));
  std::error_code error;
  fs::create_directories(state, error);
  Command(slot, {"--link", folder_.Path() + "/slot-" + slot, "--state", state.string(), "--ends-with",
                 std::to_string(getpid()), "start"});
  if (defects_) GiveDefect(slot, serial);
  const std::lock_guard lock(mutex_);
  inserted_[slot] = serial;
}

void SimulatedSlots::GiveDefect(const std::string& slot, const std::string& serial) const {
  const std::size_t hash = Hash(serial);
  if (hash % SHARE == 0) Command(slot, DEFECTS[hash / SHARE % DEFECTS.size()]);
}

}  // namespace station
