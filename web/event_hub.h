// What the viewers of a page are told, by topic, from any thread. Whoever publishes never waits: a viewer
// takes what is new when its connection has room for it, and one that is too slow skips.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace web {

enum class TopicKind {
  State,  // only the newest counts; a new viewer gets it at once
  Log,    // one after the other; a new viewer gets the newest ones that are kept
  Live,   // one after the other, from now on
};

class EventHub {
 public:
  class Viewer;

  EventHub() = default;
  EventHub(const EventHub&) = delete;
  EventHub& operator=(const EventHub&) = delete;

  // `data` has no line end. A topic is of the kind of its first event; of a log and of live events the
  // newest `keep` are kept for viewers that lag.
  void Publish(const std::string& topic, const std::string& data, TopicKind kind = TopicKind::State,
               size_t keep = 500);
  // Its events are not kept any more.
  void Forget(const std::string& topic);
  size_t Viewers(const std::string& topic) const;
  size_t AllViewers() const;
  // Called, by the viewer's thread, when the first viewer of a topic has come or the last has gone.
  void SetWatched(std::function<void(const std::string& topic, bool watched)> watched);
  // Every viewer's next look says that there is nothing more.
  void Close();

 private:
  struct Event {
    uint64_t number;
    std::shared_ptr<const std::string> text;  // as it goes to a browser
  };
  struct Topic {
    TopicKind kind = TopicKind::State;
    uint64_t last_number = 0;  // of its events, counted from 1
    std::deque<Event> events;
  };

  mutable std::mutex mutex_;
  std::condition_variable published_;
  std::map<std::string, Topic> topics_;
  std::map<std::string, size_t> viewers_;
  size_t all_viewers_ = 0;
  std::function<void(const std::string&, bool)> watched_;
  bool closed_ = false;
};

// One viewer of some topics, as long as its connection lasts.
class EventHub::Viewer {
 public:
  Viewer(EventHub& hub, std::vector<std::string> topics);
  ~Viewer();
  Viewer(const Viewer&) = delete;
  Viewer& operator=(const Viewer&) = delete;

  // Waits for what is new and returns it as text of the server-sent event format: empty if there is nothing
  // new in time, no value if the hub is closed. Where events of a log were skipped, an event "TOPIC-skipped"
  // with their number comes first.
  std::optional<std::string> Next(std::chrono::milliseconds time_out);

 private:
  struct Place {
    std::string topic;
    uint64_t seen;  // the number of the last event that was taken
  };

  std::string Take();

  EventHub& hub_;
  std::vector<Place> places_;
};

}  // namespace web
