// The phone's journal: one ordered list of everything that the server and its children did to the phone.
// Tests assert on it, phonesim prints it. All of it may be used from any thread.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <initializer_list>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace simulator {

enum class JournalKind {
  Open,     // a device or file opened: path, flags, error
  Request,  // a driver request: path, request, bytes in and out, result, error
  Shell,    // a command line given to the shell (sh -c TEXT): text
  Tool,     // a program started otherwise, by the shell too: path, arguments
  Value,    // a value written to a text control, bytes to the modem's AT port: path, text
  Sleep,    // a sleep asked for: duration
  Clock,    // the system clock set: text
  Console,  // a line that the server printed: text
  Event,    // what became of the phone itself: text
};

struct JournalEntry {
  JournalKind kind = JournalKind::Event;
  std::chrono::microseconds time{};  // since the journal began
  pid_t process = 0;                 // the thread that did it, by the PC's number
  std::string path{};
  std::string text{};
  std::vector<std::string> arguments{};  // of a tool, its name first
  int flags = 0;                         // of an open, as the caller gave them
  uint32_t request = 0;
  std::vector<uint8_t> bytes_in{};   // what the driver read from the caller
  std::vector<uint8_t> bytes_out{};  // what it wrote back
  std::chrono::nanoseconds duration{};
  int64_t result = 0;
  int error = 0;  // errno of a refused call, otherwise 0

  // One line without time and process, the form that tests compare:
  //   open /dev/fb/0 rw                          with flags: w+create+truncate, with error: ... -> ENOENT
  //   request /dev/misc/rtc 0x4024700A in 3A0000001E000000 out 01 -> EINVAL     (-> RESULT unless it is 0)
  //   shell rmmod omap_bi
  //   tool /sbin/rmmod omap_bi
  //   value /proc/backlight/lcd "100"
  //   sleep 1.000
  //   clock settimeofday 946684800.000000
  //   console no response
  //   event server ended with status 0
  std::string Line() const;
  // One line of JSON, with the line end.
  std::string JsonLine() const;
};

using JournalFilter = std::function<bool(const JournalEntry&)>;

JournalFilter OfKind(std::initializer_list<JournalKind> kinds);
JournalFilter AtPath(std::string path);       // exactly this path
JournalFilter Below(std::string path_start);  // every path that begins so
JournalFilter LineIs(std::string line);       // exactly this line
JournalFilter operator&&(JournalFilter left, JournalFilter right);
JournalFilter operator||(JournalFilter left, JournalFilter right);

// Keeps the newest entries, up to a number and a size. The listener sees every entry, so it can keep them
// all.
class Journal {
 public:
  static constexpr size_t MOST_ENTRIES = 50'000;
  static constexpr size_t MOST_BYTES = 32 << 20;  // of their texts, arguments and records

  // How many entries are kept from here on.
  void Keep(size_t entries);
  void Add(JournalEntry entry);

  // The time since the journal began, as its entries have it.
  std::chrono::microseconds Now() const;
  // The number of entries so far, dropped ones included: what happens from now on is "since" this mark.
  size_t Mark() const;
  std::vector<JournalEntry> Entries(size_t since = 0, const JournalFilter& filter = {}) const;
  std::vector<std::string> Lines(size_t since = 0, const JournalFilter& filter = {}) const;
  // The first kept entries since the mark, up to `most`.
  struct Piece {
    size_t dropped = 0;  // entries since the mark that are not kept any more
    std::vector<JournalEntry> entries;
    size_t mark = 0;  // after them
  };
  Piece Next(size_t mark, size_t most) const;
  // Waits for the first entry since the mark that passes. Returns nothing if there is none in time.
  std::optional<JournalEntry> WaitFor(const JournalFilter& filter, size_t since = 0,
                                      std::chrono::milliseconds time_out = std::chrono::seconds(10)) const;

  // Called with each later entry in order, by the thread that adds it.
  void SetListener(std::function<void(const JournalEntry&)> listener);

 private:
  size_t Place(size_t mark) const;
  void DropOldest();

  mutable std::mutex mutex_;
  mutable std::condition_variable added_;
  std::deque<JournalEntry> entries_;
  size_t most_entries_ = MOST_ENTRIES;
  size_t dropped_ = 0;  // entries before the first of entries_
  size_t bytes_ = 0;
  std::function<void(const JournalEntry&)> listener_;
  std::chrono::steady_clock::time_point start_ = std::chrono::steady_clock::now();
};

}  // namespace simulator
