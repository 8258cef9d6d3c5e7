// Looks at one phone for the pages that show it, as long as there are any, and publishes what changes. It
// finds the phone again after a restart.
//
// Topics of a phone, each "NAME/TOPIC":
//   phone      state  {"running": true, "boot": 3, …}: boot counts its starts
//   lcd        state  one picture: runs of equal pixels, or all pixels
//   state      state  the answer of `phonesim state`
//   exchanges  log    the answers of `phonesim exchanges`
//   journal    log    pieces of the journal: {"lines": […], "dropped": 0}
//   sound      live   pieces of what is played: {"rate": 44100, "channels": 1, "pcm": base64}
#pragma once

#include <poll.h>

#include <chrono>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "posix/file_descriptor.h"
#include "simulator/control/control_socket.h"
#include "simulator/control/streams.h"
#include "web/event_hub.h"

namespace simulator {

class PhoneWatch {
 public:
  PhoneWatch(std::string phone, web::EventHub& hub);
  ~PhoneWatch();
  PhoneWatch(const PhoneWatch&) = delete;
  PhoneWatch& operator=(const PhoneWatch&) = delete;

  static bool IsTopic(const std::string& topic);
  // From any thread: whether there are viewers of the topic.
  void Want(const std::string& topic, bool wanted);
  // From any thread: something was just done to the phone.
  void LookSoon();

 private:
  using Clock = std::chrono::steady_clock;

  // What is open while the phone runs and is looked at.
  struct Contact {
    std::unique_ptr<PhoneRequest> journal;  // also tells of the phone's end
    std::unique_ptr<LcdView> lcd;
    posix::FileDescriptor sound;
    std::string unfinished_line;
    std::vector<std::string> lines;  // of the journal, not published yet
    size_t dropped_lines = 0;
    std::string state;  // as published last
    int last_exchange = 0;
    Clock::time_point lcd_due{}, lines_due{}, state_due{}, next_state{};
  };

  void Work();
  bool Wants(const std::string& topic) const;
  bool WantsAny() const;
  void Sleep(std::chrono::milliseconds time);
  std::optional<Contact> Reach();
  void Publish(const std::string& topic, const std::string& data, web::TopicKind kind = web::TopicKind::State,
               size_t keep = 1);
  void PublishPhone(bool running);
  // Returns when the phone has ended or has no viewer any more.
  void Follow(Contact& contact);
  void Open(Contact& contact);
  int TimeOut(const Contact& contact) const;
  bool TakeJournal(Contact& contact);
  void TakeSound(Contact& contact);
  void Look(Contact& contact);
  void PublishLcd(const Contact& contact);
  void PublishLines(Contact& contact);
  void PublishState(Contact& contact);

  const std::string phone_;
  web::EventHub& hub_;
  posix::FileDescriptor wake_;
  mutable std::mutex mutex_;
  std::set<std::string> wanted_;
  bool look_soon_ = false;
  bool ending_ = false;
  int boot_ = 0;
  std::thread thread_;
};

}  // namespace simulator
