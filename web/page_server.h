// A page's HTTP server: assets, answers to questions, changes, and one stream of events for each open page.
// Every request passes the same checks: host, origin, method, token (web/access.h), and every answer has the
// same headers. What a browser is refused has a status and a sentence.
#pragma once

#include <cstddef>
#include <functional>
#include <map>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "web/access.h"
#include "web/assets.h"
#include "web/event_hub.h"

namespace web {

struct PageServerOptions {
  std::string name;                   // of the program, "phonesim panel": for sentences and the cookie
  std::string address = "127.0.0.1";  // where it listens
  int port = 0;                       // 0: any free one
  std::string public_host{};          // the name that a proxy with TLS serves it under, or empty
  std::vector<std::string> roles = {"viewer"};
  std::map<std::string, std::string> tokens{};  // of roles that have one already; the others get a new one
  size_t most_streams = 32;                     // open pages at a time
  size_t most_request_bytes = 64 << 10;
};

// What a handler is asked.
struct Visit {
  std::string role;
  std::string path;
  std::vector<std::string> places;  // what the groups of the route's pattern matched
  std::multimap<std::string, std::string> parameters;
  std::string body{};

  // The first value, or an empty string.
  std::string Parameter(const std::string& name) const;
};

struct Reply {
  int status = 200;
  std::string content_type = "application/json";
  std::string body{};
  std::string file_name{};  // the browser saves it under this name
};

// A handler throws it: the visitor gets the status and the sentence. Another std::exception becomes status
// 500 with its text.
struct Refused : std::runtime_error {
  Refused(int status_code, const std::string& sentence) : std::runtime_error(sentence), status(status_code) {}
  int status;
};

class PageServer {
 public:
  using Handler = std::function<Reply(const Visit&)>;
  // Returns the topics of the hub that the visitor wants.
  using StreamHandler = std::function<std::vector<std::string>(const Visit&)>;

  // Throws std::runtime_error with a sentence if it cannot listen there.
  explicit PageServer(PageServerOptions options);
  ~PageServer();
  PageServer(const PageServer&) = delete;
  PageServer& operator=(const PageServer&) = delete;

  // Before Start. Patterns are regular expressions that must match the whole path. Handlers are called by
  // many threads at once.
  void Get(const std::string& pattern, Handler handler);
  void Post(const std::string& pattern, Handler handler);  // the only way to change anything
  void Stream(const std::string& pattern, EventHub& hub, StreamHandler handler);
  // Each asset at "/NAME".
  void Serve(Assets assets);

  // Answers from here on, on threads of its own.
  void Start();
  // Ends the streams and returns when all connections are closed.
  void Stop();

  int Port() const;
  // The address to open, with the role's token; `path` begins with a slash.
  std::string Address(const std::string& role = "viewer", const std::string& path = "/") const;

 private:
  class Http;
  std::unique_ptr<Http> http_;
};

}  // namespace web
