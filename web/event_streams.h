// The streams of events that open pages read, up to a number of them.
#pragma once

#include <httplib.h>

#include <atomic>
#include <cstddef>
#include <memory>
#include <string>
#include <vector>

#include "web/event_hub.h"

namespace web {

class EventStreams {
 public:
  explicit EventStreams(std::size_t most) : most_(most) {}

  // A stream's place, free again when the last copy of this is gone.
  using Place = std::shared_ptr<std::atomic<std::size_t>>;
  // Null if all places are taken.
  Place Take();

  // The answer is a stream of what is new in these topics, until its viewer goes.
  void Send(httplib::Response& response, const Place& place, EventHub& hub, std::vector<std::string> topics);

  // Every stream ends with its next turn.
  void End() {
    ending_ = true;
  }

 private:
  struct OpenStream;
  bool Feed(OpenStream& open, httplib::DataSink& sink) const;

  const std::size_t most_;
  std::atomic<std::size_t> streams_ = 0;
  std::atomic<bool> ending_ = false;
};

}  // namespace web
