// The page that shows the running phones, in a program of its own: it asks them by their control sockets, as
// every other program can, and only for what a viewer has open.
#pragma once

#include <map>
#include <memory>
#include <mutex>
#include <string>

#include "simulator/panel/phone_watch.h"
#include "web/event_hub.h"
#include "web/page_server.h"

namespace simulator {

struct PanelOptions {
  std::string address = "127.0.0.1";
  int port = 0;             // 0: any free one
  std::string public_name;  // under which a proxy with TLS serves it
  bool ends_with_phones = false;
  pid_t ends_with = 0;  // a process of the PC, at whose end the page ends; 0: none
};

class Panel {
 public:
  // Listens. Throws std::runtime_error with a sentence.
  explicit Panel(const PanelOptions& options);
  ~Panel();

  // The page of the named phone; of all phones if the name is empty.
  std::string Address(const std::string& phone) const;
  // Until SIGINT, SIGTERM or SIGHUP, which must be blocked, or what the options say.
  void Run();

 private:
  void AddPages();
  void Watched(const std::string& topic, bool watched);
  web::Reply Command(const web::Visit& visit);
  void PublishPhones();

  PanelOptions options_;
  web::EventHub hub_;
  std::mutex mutex_;
  std::map<std::string, std::unique_ptr<PhoneWatch>> watches_;  // by the phone's name
  std::string phones_;                                          // as published last
  web::PageServer server_;
};

}  // namespace simulator
