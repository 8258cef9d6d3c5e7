#include "web/page_server.h"

#include <fcntl.h>
#include <httplib.h>
#include <sys/socket.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <memory>
#include <optional>
#include <thread>
#include <utility>

#include "posix/sha256.h"
#include "web/connection_threads.h"

namespace web {
namespace {

using httplib::Request;
using httplib::Response;

// Beside the streams: a browser opens up to six connections and keeps them for a moment.
constexpr size_t COMMAND_THREADS = 32;
constexpr time_t KEEP_ALIVE_SECONDS = 2;
// A viewer that takes nothing for so long is gone.
constexpr time_t WRITE_SECONDS = 20;
// How often a stream looks whether its viewer is still there, and how often it sends something to be seen by
// a proxy in between.
constexpr auto LOOK = std::chrono::seconds(2);
constexpr int LOOKS_PER_HEARTBEAT = 5;
// A slow viewer gets old events from the connection's buffer before new ones: keep it small.
constexpr int SEND_BUFFER = 256 << 10;

constexpr char PLAIN[] = "text/plain; charset=utf-8";

const httplib::Headers HEADERS = {
    {"Content-Security-Policy",
     "default-src 'none'; script-src 'self'; style-src 'self'; img-src 'self' data: blob:; connect-src "
     "'self'; "
     "form-action 'self'; base-uri 'none'; frame-ancestors 'none'"},
    {"X-Content-Type-Options", "nosniff"},
    {"Referrer-Policy", "same-origin"},
    {"Cross-Origin-Opener-Policy", "same-origin"},
    {"Cross-Origin-Resource-Policy", "same-origin"},
};

class Threads : public httplib::TaskQueue {
 public:
  explicit Threads(size_t most) : threads_(most) {}
  void enqueue(std::function<void()> work) override {
    threads_.Enqueue(std::move(work));
  }
  void shutdown() override {
    threads_.Join();
  }

 private:
  ConnectionThreads threads_;
};

void PrepareSocket(socket_t socket) {
  const int on = 1;
  setsockopt(socket, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
  setsockopt(socket, SOL_SOCKET, SO_SNDBUF, &SEND_BUFFER, sizeof SEND_BUFFER);
  fcntl(socket, F_SETFD, FD_CLOEXEC);
}

// A stream that is open. Its place is free before its viewer is no longer counted.
struct OpenStream {
  explicit OpenStream(std::atomic<size_t>& streams) : place(&streams, [](auto* count) { --*count; }) {}

  std::optional<EventHub::Viewer> viewer;
  std::shared_ptr<std::atomic<size_t>> place;
  int looks = 0;  // for something new
};

bool IsChange(const Request& request) {
  return request.method != "GET" && request.method != "HEAD";
}

// The methods whose bodies the HTTP library reads.
bool TakesBody(const Request& request) {
  constexpr std::string_view METHODS[] = {"POST", "PUT", "PATCH", "DELETE"};
  return std::ranges::find(METHODS, request.method) != std::end(METHODS);
}

// Returns the body, or nothing if it is longer than `most` or in several parts. The rest is read and dropped,
// so that the connection can go on: the library itself bounds only a body whose length is announced.
std::optional<std::string> ReadBody(const Request& request, const httplib::ContentReader& read, size_t most) {
  if (request.is_multipart_form_data()) {
    read([](const httplib::MultipartFormData&) { return true; }, [](const char*, size_t) { return true; });
    return std::nullopt;
  }
  std::string body;
  bool fits = true;
  const bool whole = read([&](const char* bytes, size_t size) {
    fits = fits && size <= most - body.size();
    if (fits) body.append(bytes, size);
    return true;
  });
  return fits && whole ? std::optional(std::move(body)) : std::nullopt;
}

std::string Sentence(int status) {
  switch (status) {
    case 400:
      return "The request is not one that this server understands.";
    case 404:
      return "There is no such page here.";
    case 413:
      return "The request is too long.";
    case 414:
      return "The address is too long.";
    default:
      return "The request failed.";
  }
}

void Put(Response& response, int status, const std::string& sentence) {
  response.status = status;
  response.set_header("Cache-Control", "no-store");
  response.set_content(sentence + "\n", PLAIN);
}

std::string ContentTag(const Asset& asset) {
  return "\"" + posix::Sha256(asset.content).substr(0, 32) + "\"";
}

// "/?token=…&phone=left" without the token.
std::string WithoutToken(const Request& request) {
  std::string target = request.path.starts_with("//") ? "/" : request.path;  // no other host
  char sign = '?';
  for (const auto& [name, value] : request.params) {
    if (name == "token") continue;
    target +=
        sign + httplib::detail::encode_query_param(name) + "=" + httplib::detail::encode_query_param(value);
    sign = '&';
  }
  return target;
}

}  // namespace

std::string Visit::Parameter(const std::string& name) const {
  const auto found = parameters.find(name);
  return found == parameters.end() ? std::string() : found->second;
}

class PageServer::Http {
 public:
  explicit Http(PageServerOptions options)
      : options_(std::move(options)), access_(MakeRoles(), CookieName(), options_.public_host) {
    server_.new_task_queue = [this] { return new Threads(COMMAND_THREADS + options_.most_streams); };
    server_.set_socket_options(PrepareSocket);
    server_.set_tcp_nodelay(true);
    server_.set_keep_alive_timeout(KEEP_ALIVE_SECONDS);
    server_.set_keep_alive_max_count(1000);
    server_.set_write_timeout(WRITE_SECONDS);
    server_.set_payload_max_length(options_.most_request_bytes);
    server_.set_default_headers(HEADERS);
    // A change is checked when its body has been read, so that the connection can go on.
    server_.set_pre_routing_handler([this](const Request& request, Response& response) {
      if (TakesBody(request)) return httplib::Server::HandlerResponse::Unhandled;
      const bool passes = Check(request, response);
      if (passes && !IsChange(request)) return httplib::Server::HandlerResponse::Unhandled;
      if (passes) Put(response, 404, Sentence(404));
      return httplib::Server::HandlerResponse::Handled;
    });
    server_.set_error_handler([](const Request&, Response& response) {
      if (response.body.empty()) Put(response, response.status, Sentence(response.status));
    });
    Bind();
  }

  ~Http() {
    Stop();
  }

  void Get(const std::string& pattern, Handler handler) {
    server_.Get(pattern, [this, handler = std::move(handler)](const Request& request, Response& response) {
      Answer(handler, MakeVisit(request), response);
    });
  }

  void Post(const std::string& pattern, Handler handler) {
    server_.Post(pattern, TakeChange(std::move(handler)));
  }

  void Stream(const std::string& pattern, EventHub& hub, StreamHandler handler) {
    server_.Get(pattern, [this, &hub, handler = std::move(handler)](const Request& request,
                                                                    Response& response) {
      if (++streams_ > options_.most_streams) {
        --streams_;
        return Put(response, 503,
                   options_.name + " shows itself to " + std::to_string(options_.most_streams) +
                       " pages already. Close one of them and load this page again.");
      }
      const auto open = std::make_shared<OpenStream>(streams_);
      Guarded(response, [&] { open->viewer.emplace(hub, handler(MakeVisit(request))); });
      if (!open->viewer) return;
      response.set_header("Cache-Control", "no-store");
      response.set_header("X-Accel-Buffering", "no");  // for a proxy in between
      response.set_chunked_content_provider(
          "text/event-stream", [this, open](size_t, httplib::DataSink& sink) { return Feed(*open, sink); });
    });
  }

  void Serve(Assets assets) {
    for (const Asset& asset : assets) {
      server_.Get("/" + std::string(asset.name), [asset, tag = ContentTag(asset)](const Request& request,
                                                                                  Response& response) {
        response.set_header("ETag", tag);
        response.set_header("Cache-Control", "private, no-cache");
        if (request.get_header_value("If-None-Match") == tag) {
          response.status = 304;
          return;
        }
        response.set_content(asset.content.data(), asset.content.size(), std::string(asset.content_type));
      });
    }
  }

  void Start() {
    const auto unknown = TakeChange([](const Visit&) -> Reply { throw Refused(404, Sentence(404)); });
    server_.Post(".*", unknown);
    server_.Put(".*", unknown);
    server_.Patch(".*", unknown);
    server_.Delete(".*", unknown);
    thread_ = std::thread([this] { server_.listen_after_bind(); });
    while (!server_.is_running()) std::this_thread::yield();
  }

  void Stop() {
    ending_ = true;
    server_.stop();
    if (thread_.joinable()) thread_.join();
  }

  int Port() const {
    return port_;
  }

  std::string Address(const std::string& role, const std::string& path) const {
    const std::string host =
        options_.public_host.empty() ? "http://" + access_.OwnHost() : "https://" + options_.public_host;
    for (const Role& known : access_.Roles()) {
      if (known.name == role) return host + path + "?token=" + known.token;
    }
    throw std::logic_error("the page has no such role");
  }

 private:
  std::vector<Role> MakeRoles() const {
    std::vector<Role> roles;
    for (const std::string& name : options_.roles) {
      const auto token = options_.tokens.find(name);
      roles.push_back(token == options_.tokens.end() ? NewRole(name) : RoleWithToken(name, token->second));
    }
    return roles;
  }

  std::string CookieName() const {
    std::string name = options_.name;
    std::ranges::replace(name, ' ', '-');
    return name;
  }

  void Bind() {
    if (options_.port == 0) {
      port_ = server_.bind_to_any_port(options_.address);
    } else if (server_.bind_to_port(options_.address, options_.port)) {
      port_ = options_.port;
    }
    if (port_ <= 0) {
      throw std::runtime_error(options_.name + " cannot listen on " + options_.address + ", port " +
                               std::to_string(options_.port) + ": is it in use?");
    }
    access_.SetPlace(options_.address, port_);
  }

  // Returns false if the request is not to be answered otherwise: it is refused, or was a visit with a token.
  bool Check(const Request& request, Response& response) const {
    const std::string host = request.get_header_value("Host");
    if (request.get_header_value_count("Host") != 1 || !access_.KnowsHost(host)) {
      Put(response, 403, "This server does not answer under that name. Use the address that it printed.");
      return false;
    }
    const bool has_origin = request.has_header("Origin");
    if (has_origin ? !access_.KnowsOrigin(request.get_header_value("Origin")) : IsChange(request)) {
      Put(response, 403, "Another site's page asks for this, so it is refused.");
      return false;
    }
    if (!IsChange(request) && request.has_param("token")) {
      ExchangeToken(request, response, host);
      return false;
    }
    if (access_.RoleOfCookies(request.get_header_value("Cookie")) == nullptr) {
      Put(response, 401,
          "Open the address that " + options_.name + " printed, the whole of it: it holds a token.");
      return false;
    }
    return true;
  }

  void ExchangeToken(const Request& request, Response& response, const std::string& host) const {
    const Role* role = access_.RoleOfToken(request.get_param_value("token"));
    if (role == nullptr) {
      return Put(response, 403, "This address is of an earlier start. Open the one that was printed last.");
    }
    response.set_header("Set-Cookie", access_.Cookie(*role, host));
    response.set_header("Cache-Control", "no-store");
    response.set_redirect(WithoutToken(request), 303);
  }

  httplib::Server::HandlerWithContentReader TakeChange(Handler handler) {
    return [this, handler = std::move(handler)](const Request& request, Response& response,
                                                const httplib::ContentReader& read) {
      std::optional<std::string> body = ReadBody(request, read, options_.most_request_bytes);
      if (!Check(request, response)) return;
      if (!body) return Put(response, 413, Sentence(413));
      Visit visit = MakeVisit(request);
      visit.body = std::move(*body);
      Answer(handler, visit, response);
    };
  }

  Visit MakeVisit(const Request& request) const {
    Visit visit;
    visit.role = access_.RoleOfCookies(request.get_header_value("Cookie"))->name;
    visit.path = request.path;
    for (size_t index = 1; index < request.matches.size(); ++index) {
      visit.places.push_back(request.matches[index].str());
    }
    visit.parameters = request.params;
    return visit;
  }

  template <typename Work>
  static void Guarded(Response& response, Work work) {
    try {
      work();
    } catch (const Refused& refused) {
      Put(response, refused.status, refused.what());
    } catch (const std::exception& failure) {
      Put(response, 500, failure.what());
    }
  }

  void Answer(const Handler& handler, const Visit& visit, Response& response) const {
    Guarded(response, [&] {
      const Reply reply = handler(visit);
      response.status = reply.status;
      response.set_header("Cache-Control", "no-store");
      if (!reply.file_name.empty()) {
        response.set_header("Content-Disposition", "attachment; filename=\"" + reply.file_name + "\"");
      }
      response.set_content(reply.body, reply.content_type);
    });
  }

  // One turn of a stream. Returns false when the stream is over.
  bool Feed(OpenStream& open, httplib::DataSink& sink) const {
    const auto text = open.viewer->Next(LOOK);
    if (!text || ending_ || !sink.is_writable()) return false;
    if (!text->empty()) return sink.write(text->data(), text->size());
    if (++open.looks % LOOKS_PER_HEARTBEAT != 0) return true;
    static constexpr std::string_view HEARTBEAT = ": still here\n\n";
    return sink.write(HEARTBEAT.data(), HEARTBEAT.size());
  }

  PageServerOptions options_;
  Access access_;
  httplib::Server server_;
  int port_ = 0;
  std::atomic<size_t> streams_ = 0;
  std::atomic<bool> ending_ = false;
  std::thread thread_;
};

PageServer::PageServer(PageServerOptions options) : http_(std::make_unique<Http>(std::move(options))) {}

PageServer::~PageServer() = default;

void PageServer::Get(const std::string& pattern, Handler handler) {
  http_->Get(pattern, std::move(handler));
}

void PageServer::Post(const std::string& pattern, Handler handler) {
  http_->Post(pattern, std::move(handler));
}

void PageServer::Stream(const std::string& pattern, EventHub& hub, StreamHandler handler) {
  http_->Stream(pattern, hub, std::move(handler));
}

void PageServer::Serve(Assets assets) {
  http_->Serve(assets);
}

void PageServer::Start() {
  http_->Start();
}

void PageServer::Stop() {
  http_->Stop();
}

int PageServer::Port() const {
  return http_->Port();
}

std::string PageServer::Address(const std::string& role, const std::string& path) const {
  return http_->Address(role, path);
}

}  // namespace web
