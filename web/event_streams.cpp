#include "web/event_streams.h"

#include <chrono>
#include <string_view>
#include <utility>

namespace web {
namespace {

// How often a stream looks whether its viewer is still there, and how often it sends something to be seen by
// a proxy in between.
constexpr auto LOOK = std::chrono::seconds(2);
constexpr int LOOKS_PER_HEARTBEAT = 5;

}  // namespace

// Its place is free before its viewer is no longer counted.
struct EventStreams::OpenStream {
  OpenStream(EventHub& hub, std::vector<std::string> topics, Place its_place)
      : viewer(hub, std::move(topics)), place(std::move(its_place)) {}

  EventHub::Viewer viewer;
  Place place;
  int looks = 0;  // for something new
};

EventStreams::Place EventStreams::Take() {
  if (++streams_ > most_) {
    --streams_;
    return nullptr;
  }
  return {&streams_, [](auto* count) { --*count; }};
}

void EventStreams::Send(httplib::Response& response, const Place& place, EventHub& hub,
                        std::vector<std::string> topics) {
  const auto open = std::make_shared<OpenStream>(hub, std::move(topics), place);
  response.set_header("Cache-Control", "no-store");
  response.set_header("X-Accel-Buffering", "no");  // for a proxy in between
  response.set_chunked_content_provider(
      "text/event-stream", [this, open](size_t, httplib::DataSink& sink) { return Feed(*open, sink); });
}

// One turn of a stream. Returns false when the stream is over.
bool EventStreams::Feed(OpenStream& open, httplib::DataSink& sink) const {
  const auto text = open.viewer.Next(LOOK);
  if (!text || ending_ || !sink.is_writable()) return false;
  if (!text->empty()) return sink.write(text->data(), text->size());
  if (++open.looks % LOOKS_PER_HEARTBEAT != 0) return true;
  static constexpr std::string_view HEARTBEAT = ": still here\n\n";
  return sink.write(HEARTBEAT.data(), HEARTBEAT.size());
}

}  // namespace web
