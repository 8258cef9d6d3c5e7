#include "web/event_hub.h"

#include <utility>

namespace web {
namespace {

// What one look takes at most: a viewer that lags gets the rest with its next ones.
constexpr size_t MOST_BYTES = 1 << 20;

}  // namespace

void EventHub::Publish(const std::string& topic, const std::string& data, TopicKind kind, size_t keep) {
  auto text = std::make_shared<const std::string>("event: " + topic + "\ndata: " + data + "\n\n");
  {
    const std::lock_guard lock(mutex_);
    Topic& place = topics_[topic];
    if (place.events.empty()) place.kind = kind;
    if (place.kind == TopicKind::State) keep = 1;
    place.events.push_back({++place.last_number, std::move(text)});
    while (place.events.size() > keep) place.events.pop_front();
  }
  published_.notify_all();
}

void EventHub::Forget(const std::string& topic) {
  const std::lock_guard lock(mutex_);
  const auto found = topics_.find(topic);
  if (found != topics_.end()) found->second.events.clear();
}

size_t EventHub::Viewers(const std::string& topic) const {
  const std::lock_guard lock(mutex_);
  const auto found = viewers_.find(topic);
  return found == viewers_.end() ? 0 : found->second;
}

size_t EventHub::AllViewers() const {
  const std::lock_guard lock(mutex_);
  return all_viewers_;
}

void EventHub::SetWatched(std::function<void(const std::string&, bool)> watched) {
  const std::lock_guard lock(mutex_);
  watched_ = std::move(watched);
}

void EventHub::Close() {
  {
    const std::lock_guard lock(mutex_);
    closed_ = true;
  }
  published_.notify_all();
}

EventHub::Viewer::Viewer(EventHub& hub, std::vector<std::string> topics) : hub_(hub) {
  std::vector<std::string> first;
  std::function<void(const std::string&, bool)> watched;
  {
    const std::lock_guard lock(hub_.mutex_);
    for (std::string& topic : topics) {
      if (++hub_.viewers_[topic] == 1) first.push_back(topic);
      const auto found = hub_.topics_.find(topic);
      const bool live = found != hub_.topics_.end() && found->second.kind == TopicKind::Live;
      places_.push_back({std::move(topic), live ? found->second.last_number : 0});
    }
    ++hub_.all_viewers_;
    watched = hub_.watched_;
  }
  if (!watched) return;
  for (const std::string& topic : first) watched(topic, true);
}

EventHub::Viewer::~Viewer() {
  std::vector<std::string> last;
  std::function<void(const std::string&, bool)> watched;
  {
    const std::lock_guard lock(hub_.mutex_);
    for (const Place& place : places_) {
      const auto found = hub_.viewers_.find(place.topic);
      if (--found->second > 0) continue;
      hub_.viewers_.erase(found);
      last.push_back(place.topic);
    }
    --hub_.all_viewers_;
    watched = hub_.watched_;
  }
  if (!watched) return;
  for (const std::string& topic : last) watched(topic, false);
}

std::optional<std::string> EventHub::Viewer::Next(std::chrono::milliseconds time_out) {
  std::unique_lock lock(hub_.mutex_);
  std::string text;
  hub_.published_.wait_for(lock, time_out, [&] { return hub_.closed_ || !(text = Take()).empty(); });
  if (hub_.closed_) return std::nullopt;
  return text;
}

std::string EventHub::Viewer::Take() {
  std::string text;
  for (Place& place : places_) {
    const auto found = hub_.topics_.find(place.topic);
    if (found == hub_.topics_.end()) continue;
    const Topic& topic = found->second;
    for (const Event& event : topic.events) {
      if (event.number <= place.seen) continue;
      if (text.size() >= MOST_BYTES) return text;
      const uint64_t skipped = event.number - place.seen - 1;
      if (topic.kind == TopicKind::Log && place.seen > 0 && skipped > 0) {
        text += "event: " + place.topic + "-skipped\ndata: " + std::to_string(skipped) + "\n\n";
      }
      text += *event.text;
      place.seen = event.number;
    }
  }
  return text;
}

}  // namespace web
