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
    hub.Close();
    EXPECT_EQ(std::nullopt, viewer.Next(0ms));
  }
  EXPECT_EQ((std::vector<std::string>{"log+", "sound+", "log-", "sound-"}), watched);
}

}  // namespace
