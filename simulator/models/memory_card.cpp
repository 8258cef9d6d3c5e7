#include "simulator/models/memory_card.h"

#include <fcntl.h>
#include <fmt/format.h>

#include <cerrno>
#include <stdexcept>

#include "simulator/phone/device_descriptors.h"
#include "simulator/phone/root_directory.h"

namespace simulator {
namespace {

constexpr char CARD_LIST[] = "/proc/bus/mmc/device";
constexpr char CARD_FOLDER[] = "/mnt/fat";

}  // namespace

std::vector<std::string> MemoryCard::Paths() const {
  return {CARD_LIST};
}

std::vector<std::string> MemoryCard::Folders() const {
  return {CARD_FOLDER};
}

void MemoryCard::Furnish(RootDirectory& root) {
  root.MakeDirectory(CARD_FOLDER);
}

OpenAnswer MemoryCard::Open(const OpenCall& call) {
  if (call.path == CARD_LIST) {
    if (!state.driver) return OpenAnswer::Refusal(ENOENT);
    if (call.Writes()) return OpenAnswer::Refusal(EACCES);
    return OpenAnswer::PlainDescriptor(TextSnapshot(CardList()));
  }
  if (!state.inserted) return OpenAnswer::Refusal(EIO);
  const bool changes = call.Writes() || (call.flags & (O_CREAT | O_TRUNC)) != 0;
  return state.read_only && changes ? OpenAnswer::Refusal(EROFS) : OpenAnswer::OrdinaryFile();
}

std::string MemoryCard::CardList() const {
  std::string list = "mmc host: omap730, slot 0\n";
  if (state.inserted)
    list +=
        fmt::format("card 0: mid=0x1b oid=0x5343 pnm={} psn={} size=256M\n", state.name, state.serial_number);
  return list;
}

std::vector<ModelCommand> MemoryCard::Commands() {
  return {{"card",
           "[insert | remove | read-only | writable | serial NUMBER]",
           "tells how the memory card is, or changes it",
           [this](const std::vector<std::string>& words) {
             const std::string word = words.empty() ? "" : words[0];
             if (word == "insert" || word == "remove") {
               state.inserted = word == "insert";
             } else if (word == "read-only" || word == "writable") {
               state.read_only = word == "read-only";
             } else if (word == "serial" && words.size() == 2) {
               state.serial_number = words[1];
             } else if (!word.empty()) {
               throw std::invalid_argument(
                   "a card can be inserted, removed, read-only, writable or given a serial number");
             }
             return CardList();
           },
           {},
           {{"remove"}, {"read-only"}}}};
}

}  // namespace simulator
