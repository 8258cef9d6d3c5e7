#include "web/page_server.h"

#include <httplib.h>

#include <algorithm>
#include <memory>
#include <optional>
#include <thread>
#include <utility>

#include "posix/sha256.h"
#include "web/event_streams.h"
#include "web/http_exchange.h"
#include "web/http_setup.h"

namespace web {
namespace {

using httplib::Request;
using httplib::Response;

std::string ContentTag(const Asset& asset) {
  return "\"" + posix::Sha256(asset.content).substr(0, 32) + "\"";
}

std::vector<Role> MakeRoles(const PageServerOptions& options) {
  std::vector<Role> roles;
  for (const std::string& name : options.roles) {
    const auto token = options.tokens.find(name);
    roles.push_back(token == options.tokens.end() ? NewRole(name) : RoleWithToken(name, token->second));
  }
  return roles;
}

std::string CookieName(std::string name) {
  std::ranges::replace(name, ' ', '-');
  return name;
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
      : options_(std::move(options)),
        access_(MakeRoles(options_), CookieName(options_.name), options_.public_host),
        streams_(options_.most_streams) {
    SetUp(server_, options_.most_streams, options_.most_request_bytes);
    // A change is checked when its body has been read, so that the connection can go on.
    server_.set_pre_routing_handler([this](const Request& request, Response& response) {
      if (TakesBody(request)) return httplib::Server::HandlerResponse::Unhandled;
      const bool passes = Check(request, response);
      if (passes && !IsChange(request)) return httplib::Server::HandlerResponse::Unhandled;
      if (passes) Put(response, 404, StatusSentence(404));
      return httplib::Server::HandlerResponse::Handled;
    });
    server_.set_error_handler([](const Request&, Response& response) {
      if (response.body.empty()) Put(response, response.status, StatusSentence(response.status));
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
    server_.Get(
        pattern, [this, &hub, handler = std::move(handler)](const Request& request, Response& response) {
          const auto place = streams_.Take();
          if (!place) {
            return Put(response, 503,
                       options_.name + " shows itself to " + std::to_string(options_.most_streams) +
                           " pages already. Close one of them and load this page again.");
          }
          Guarded(response, [&] { streams_.Send(response, place, hub, handler(MakeVisit(request))); });
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
    const auto unknown = TakeChange([](const Visit&) -> Reply { throw Refused(404, StatusSentence(404)); });
    server_.Post(".*", unknown);
    server_.Put(".*", unknown);
    server_.Patch(".*", unknown);
    server_.Delete(".*", unknown);
    thread_ = std::thread([this] { server_.listen_after_bind(); });
    while (!server_.is_running()) std::this_thread::yield();
  }

  void Stop() {
    streams_.End();
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
      if (!body) return Put(response, 413, StatusSentence(413));
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

  PageServerOptions options_;
  Access access_;
  httplib::Server server_;
  int port_ = 0;
  EventStreams streams_;
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
