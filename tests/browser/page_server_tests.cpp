// The pages' server by direct call: who is refused, what goes out, streams and their viewers.
#include <gtest/gtest.h>
#include <httplib.h>

#include <string>
#include <thread>

#include "web/event_hub.h"
#include "web/page_server.h"

namespace {

using httplib::Headers;

class PageServerTest : public testing::Test {
 protected:
  PageServerTest() : server_({.name = "test page", .roles = {"operator", "lead"}, .most_streams = 2}) {
    server_.Get("/who/(.*)", [](const web::Visit& visit) {
      if (visit.places.at(0) == "unknown") throw web::Refused(409, "This name is not known.");
      return web::Reply{.body = visit.role + visit.places.at(0) + visit.Parameter("more")};
    });
    server_.Get("/file", [](const web::Visit&) { return web::Reply{.file_name = "a.bin"}; });
    server_.Post("/change", [this](const web::Visit& visit) {
      changes_ += visit.body;
      return web::Reply{};
    });
    server_.Stream("/events", hub_, [](const web::Visit&) {
      return std::vector<std::string>{"state", "log"};
    });
    server_.Serve(web::SharedAssets());
    server_.Start();
    host_ = "127.0.0.1:" + std::to_string(server_.Port());
  }
  ~PageServerTest() override {
    hub_.Close();
  }

  httplib::Client Connect() {
    return httplib::Client("127.0.0.1", server_.Port());
  }
  // What a browser has after opening the printed address.
  std::string Cookie(const std::string& role) {
    const std::string address = server_.Address(role);
    const auto answer = Connect().Get(address.substr(address.find("/?")));
    EXPECT_EQ(303, answer->status);
    EXPECT_EQ("/", answer->get_header_value("Location"));
    const std::string cookie = answer->get_header_value("Set-Cookie");
    EXPECT_NE(std::string::npos, cookie.find("; HttpOnly; SameSite=Strict")) << cookie;
    EXPECT_EQ(std::string::npos, cookie.find(address.substr(address.find('=') + 1))) << "the token itself";
    return cookie.substr(0, cookie.find(';'));
  }
  int Status(const Headers& headers, const std::string& path = "/who/x") {
    const auto answer = Connect().Get(path, headers);
    EXPECT_TRUE(answer->status < 400 || answer->body.ends_with(".\n")) << answer->body;
    return answer->status;
  }
  int Change(const Headers& headers, const std::string& body = "+") {
    return Connect().Post("/change", headers, body, "application/json")->status;
  }

  web::EventHub hub_;
  std::string changes_;
  web::PageServer server_;
  std::string host_;
};

TEST_F(PageServerTest, OnlyVisitorsWithATokenAreServedEachInItsRole) {
  EXPECT_EQ(401, Status({}));
  EXPECT_EQ(401, Status({{"Cookie", "test-page-" + std::to_string(server_.Port()) + "="}}));
  EXPECT_EQ(403, Status({}, "/?token=guess"));
  EXPECT_EQ(403, Status({}, "/?token="));
  const std::string lead = Cookie("lead");
  EXPECT_EQ(401, Status({{"Cookie", lead + "0"}}));
  EXPECT_EQ("lead7&", Connect().Get("/who/7?more=%26", {{"Cookie", "a=b; " + lead}})->body);
  EXPECT_EQ("operator", Connect().Get("/who/", {{"Cookie", Cookie("operator")}})->body);
  EXPECT_EQ(404, Status({{"Cookie", lead}}, "/nowhere"));
  EXPECT_EQ(409, Status({{"Cookie", lead}}, "/who/unknown"));

  EXPECT_EQ("attachment; filename=\"a.bin\"",
            Connect().Get("/file", {{"Cookie", lead}})->get_header_value("Content-Disposition"));

  const auto asset = Connect().Get("/web.css", {{"Cookie", lead}});
  EXPECT_EQ("text/css; charset=utf-8", asset->get_header_value("Content-Type"));
  EXPECT_NE(std::string::npos, asset->get_header_value("Content-Security-Policy").find("default-src 'none'"));
  EXPECT_EQ(304, Status({{"Cookie", lead}, {"If-None-Match", asset->get_header_value("ETag")}}, "/web.css"));
}

TEST_F(PageServerTest, ForeignHostsAndOriginsAreRefused) {
  const std::string cookie = Cookie("lead");
  EXPECT_EQ(403, Status({{"Cookie", cookie}, {"Host", "evil.example"}}));
  EXPECT_EQ(403, Status({{"Cookie", cookie}, {"Host", "127.0.0.1:1"}}));
  EXPECT_EQ(403, Status({{"Cookie", cookie}, {"Host", host_}, {"Host", "evil.example"}}));
  const std::string own = server_.Address("lead");
  const auto away = Connect().Get("//evil.example" + own.substr(own.find("/?")));
  EXPECT_EQ("/", away->get_header_value("Location")) << "the token leads to no other host";
  EXPECT_EQ(403, Status({{"Cookie", cookie}, {"Origin", "http://evil.example"}}));
  EXPECT_EQ(403, Status({{"Cookie", cookie}, {"Origin", "null"}}));

  EXPECT_EQ(403, Change({{"Cookie", cookie}}));
  EXPECT_EQ(403, Change({{"Cookie", cookie}, {"Origin", "http://127.0.0.1:1"}}));
  EXPECT_EQ(403, Change({{"Cookie", cookie}, {"Origin", "https://" + host_}}));
  EXPECT_EQ(401, Change({{"Origin", "http://" + host_}}));
  EXPECT_EQ(404, Status({{"Cookie", cookie}}, "/change")) << "a change by GET";
  const std::string with_token = server_.Address("lead", "/change");
  const auto exchanged = Connect().Post(with_token.substr(with_token.find("/change")),
                                        {{"Origin", "http://" + host_}}, "+", "application/json");
  EXPECT_EQ(401, exchanged->status) << "a token with a change";
  EXPECT_FALSE(exchanged->has_header("Set-Cookie"));
  EXPECT_EQ("", changes_);
  EXPECT_EQ(200, Change({{"Cookie", cookie}, {"Origin", "http://" + host_}}));
  EXPECT_EQ("+", changes_);
  EXPECT_EQ(413, Change({{"Cookie", cookie}, {"Origin", "http://" + host_}}, std::string(100'000, '+')));
  // Also if its length is not announced; the connection goes on after it.
  auto uploader = Connect();
  uploader.set_keep_alive(true);
  int chunks = 100;
  const auto chunked = uploader.Post(
      "/change", {{"Cookie", cookie}, {"Origin", "http://" + host_}},
      [&chunks](size_t, httplib::DataSink& sink) {
        if (chunks-- > 0) return sink.write(std::string(1000, '+').data(), 1000);
        sink.done();
        return true;
      },
      "application/json");
  EXPECT_EQ(413, chunked->status);
  EXPECT_EQ(200, uploader.Get("/who/x", {{"Cookie", cookie}})->status);
  EXPECT_EQ("+", changes_);

  // The printed address is where it listens.
  web::PageServer elsewhere({.name = "test page", .address = "127.0.0.2"});
  elsewhere.Start();
  const std::string there = elsewhere.Address();
  EXPECT_TRUE(there.starts_with("http://127.0.0.2:")) << there;
  EXPECT_EQ(303, httplib::Client("127.0.0.2", elsewhere.Port()).Get(there.substr(there.find("/?")))->status);

  // A page that goes out under a name of its own: TLS is in front, and the cookie stays behind it.
  web::PageServer named({.name = "test page", .public_host = "panel.example"});
  named.Get("/", [](const web::Visit&) { return web::Reply{}; });
  named.Start();
  httplib::Client client("127.0.0.1", named.Port());
  const std::string address = named.Address();
  EXPECT_TRUE(address.starts_with("https://panel.example/?token=")) << address;
  const auto answer = client.Get(address.substr(address.find("/?")), {{"Host", "panel.example"}});
  EXPECT_TRUE(answer->get_header_value("Set-Cookie").ends_with("; Secure"));
}

// A browser sends all ports of a host the same cookies, so the name says whose it is.
TEST_F(PageServerTest, ACookieIsOfOneServerAndOutlivesItsRestartIfTheTokenIsKept) {
  const std::string cookie = Cookie("lead");
  const std::string value = cookie.substr(cookie.find('='));
  EXPECT_EQ("test-page-" + std::to_string(server_.Port()), cookie.substr(0, cookie.find('=')));
  for (const std::string& other : {"test-page" + value, "test-page-1" + value, "x" + cookie, value.substr(1)})
    EXPECT_EQ(401, Status({{"Cookie", other}})) << other;
  EXPECT_EQ(200, Status({{"Cookie", "test-page-1=0; " + cookie}}));

  const web::Role kept = web::RoleWithToken("lead", "a token that is kept");
  EXPECT_EQ(kept.cookie_value, web::RoleWithToken("lead", "a token that is kept").cookie_value);
  EXPECT_NE(kept.cookie_value, web::RoleWithToken("lead", "another").cookie_value);
  EXPECT_EQ(std::string::npos, kept.cookie_value.find(kept.token));
  EXPECT_NE(web::NewRole("lead").token, web::NewRole("lead").token);
  EXPECT_GE(web::NewRole("lead").token.size(), 32u);
}

TEST(AccessTest, OnlyItsOwnNamesAreHostsAndOrigins) {
  web::Access access({web::RoleWithToken("lead", "token")}, "page", "panel.example");
  access.SetPlace("192.168.7.2", 80);
  const struct {
    const char* host;
    bool known;
    const char* scheme;  // of the pages there
  } cases[] = {{"panel.example", true, "https://"},     {"PANEL.example", true, "https://"},
               {"panel.example:80", false, "https://"}, {"panel.example.org", false, "https://"},
               {"192.168.7.2:80", true, "http://"},     {"localhost:80", true, "http://"},
               {"127.0.0.1:80", true, "http://"},       {"[::1]:80", true, "http://"},
               {"192.168.7.2", false, "http://"},       {"192.168.7.3:80", false, "http://"},
               {"localhost:8", false, "http://"},       {"", false, "http://"}};
  for (const auto& [host, known, scheme] : cases) {
    EXPECT_EQ(known, access.KnowsHost(host)) << host;
    EXPECT_EQ(known, access.KnowsOrigin(std::string(scheme) + host)) << host;
    const bool secure = std::string_view(scheme) == "https://";
    EXPECT_FALSE(access.KnowsOrigin((secure ? "http://" : "https://") + std::string(host))) << host;
    EXPECT_FALSE(access.KnowsOrigin(host)) << host;
    EXPECT_EQ(known && secure, access.Cookie(access.Roles()[0], host).ends_with("; Secure")) << host;
  }
}

TEST_F(PageServerTest, EveryAnswerHasTheSameDefences) {
  const std::string cookie = Cookie("lead");
  const struct {
    const char* path;
    Headers headers;
    const char* kept;  // Cache-Control
  } cases[] = {{"/who/x", {{"Cookie", cookie}}, "no-store"},
               {"/who/unknown", {{"Cookie", cookie}}, "no-store"},
               {"/who/x", {}, "no-store"},
               {"/nowhere", {{"Cookie", cookie}}, "no-store"},
               {"/?token=guess", {}, "no-store"},
               {"/web.css", {{"Cookie", cookie}}, "private, no-cache"}};
  for (const auto& [path, headers, kept] : cases) {
    const auto answer = Connect().Get(path, headers);
    EXPECT_EQ(kept, answer->get_header_value("Cache-Control")) << path;
    EXPECT_EQ("nosniff", answer->get_header_value("X-Content-Type-Options")) << path;
    EXPECT_EQ("same-origin", answer->get_header_value("Cross-Origin-Resource-Policy")) << path;
    for (const char* part : {"default-src 'none'; script-src 'self'; style-src 'self';", "base-uri 'none'",
                             "frame-ancestors 'none'", "form-action 'self'"})
      EXPECT_NE(std::string::npos, answer->get_header_value("Content-Security-Policy").find(part))
          << path << part;
  }
  // A body of just the largest size is taken.
  const Headers own = {{"Cookie", cookie}, {"Origin", "http://" + host_}};
  EXPECT_EQ(200, Change(own, std::string(64 << 10, '+')));
  EXPECT_EQ(413, Change(own, std::string((64 << 10) + 1, '+')));
  EXPECT_EQ(std::size_t{64 << 10}, changes_.size());
}

// Reads from a stream until the text has come.
std::string ReadUntil(httplib::Client& client, const std::string& cookie, const std::string& text) {
  std::string read;
  client.Get("/events", {{"Cookie", cookie}}, [&](const char* bytes, size_t size) {
    read.append(bytes, size);
    return read.find(text) == std::string::npos;
  });
  return read;
}

TEST_F(PageServerTest, StreamsSkipWhatIsOldAndLeaveRoomForCommands) {
  const std::string cookie = Cookie("lead");
  for (int number = 1; number <= 3; ++number) hub_.Publish("state", std::to_string(number));
  for (int number = 1; number <= 5; ++number) {
    hub_.Publish("log", std::to_string(number), web::TopicKind::Log, 2);
  }
  auto client = Connect();
  EXPECT_EQ("event: state\ndata: 3\n\nevent: log\ndata: 4\n\nevent: log\ndata: 5\n\n",
            ReadUntil(client, cookie, "data: 5\n\n"));

  while (hub_.AllViewers() != 0) std::this_thread::yield();  // a viewer that goes is noticed

  // Two viewers fill the places; a third one is told so, and commands are answered all the same.
  std::vector<std::thread> viewers;
  for (int number = 0; number < 2; ++number) {
    viewers.emplace_back([this, cookie] {
      auto viewer = Connect();
      ReadUntil(viewer, cookie, "data: over\n\n");
    });
  }
  while (hub_.AllViewers() != 2) std::this_thread::yield();
  EXPECT_EQ(503, Status({{"Cookie", cookie}}, "/events"));
  EXPECT_EQ(200, Status({{"Cookie", cookie}}));
  hub_.Publish("state", "over");
  for (std::thread& viewer : viewers) viewer.join();
}

TEST(EventHubTest, AViewerThatLagsIsToldHowMuchOfALogItMissed) {
  using namespace std::chrono_literals;
  web::EventHub hub;
  hub.Publish("sound", "old", web::TopicKind::Live);
  std::vector<std::string> watched;
  hub.SetWatched(
      [&](const std::string& topic, bool there) { watched.push_back(topic + (there ? "+" : "-")); });
  {
    web::EventHub::Viewer viewer(hub, {"log", "sound"});
    hub.Publish("log", "1", web::TopicKind::Log, 3);
    EXPECT_EQ("event: log\ndata: 1\n\n", viewer.Next(0ms));
    for (int number = 2; number <= 9; ++number)
      hub.Publish("log", std::to_string(number), web::TopicKind::Log, 3);
    const std::string lagging = *viewer.Next(0ms);
    EXPECT_TRUE(lagging.starts_with("event: log-skipped\ndata: 5\n\nevent: log\ndata: 7\n\n")) << lagging;
    EXPECT_EQ("", viewer.Next(0ms));
    // One that is missed is told of too.
    for (int number = 10; number <= 13; ++number)
      hub.Publish("log", std::to_string(number), web::TopicKind::Log, 3);
    EXPECT_TRUE(viewer.Next(0ms)->starts_with("event: log-skipped\ndata: 1\n\nevent: log\ndata: 11\n\n"));
    // A look takes a part of what is much, and the next ones the rest.
    const std::string large(900'000, 'x');
    for (int number = 0; number < 3; ++number) hub.Publish("log", large, web::TopicKind::Log, 3);
    EXPECT_LT(viewer.Next(0ms)->size(), 2 * large.size() + 100);
    EXPECT_GT(viewer.Next(0ms)->size(), large.size());
    hub.Close();
    EXPECT_EQ(std::nullopt, viewer.Next(0ms));
  }
  EXPECT_EQ((std::vector<std::string>{"log+", "sound+", "log-", "sound-"}), watched);
}

}  // namespace
