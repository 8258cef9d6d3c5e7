// The line in a browser: an HTTP server with the cards, their events, what an operator may do, and what only
// the line manager may.
#pragma once

#include <condition_variable>
#include <mutex>
#include <set>
#include <string>
#include <thread>

#include "station/line/line.h"
#include "station/line/results_store.h"
#include "web/page_server.h"

namespace station {

// The roles of the page's two tokens.
constexpr const char* OPERATOR_ROLE = "operator";
constexpr const char* MANAGER_ROLE = "manager";

class LinePage {
 public:
  // Listens, and answers from Start() on. Throws std::runtime_error.
  LinePage(LineOrder order, ResultsStore& store, web::PageServerOptions options);
  ~LinePage();
  LinePage(const LinePage&) = delete;
  LinePage& operator=(const LinePage&) = delete;

  void Start();

  Line& GetLine() {
    return line_;
  }
  web::PageServer& Server() {
    return server_;
  }

 private:
  void ServeLine();
  void ServeSlots();
  void ServeManager();
  void Note(const std::string& slot);
  // Tells the pages what has changed, in a thread of its own.
  void Publish(const std::stop_token& stop);
  void PublishStore();
  nlohmann::ordered_json LineView() const;
  nlohmann::ordered_json SettingsView() const;

  ResultsStore& store_;
  web::EventHub hub_;
  web::PageServer server_;
  std::mutex mutex_;
  std::condition_variable_any noted_;
  std::set<std::string> changed_;  // names of slots
  Line line_;
  std::jthread publisher_;
};

}  // namespace station
