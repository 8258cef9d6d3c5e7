// The modules that both pages share, in a browser.
#include <gtest/gtest.h>

#include <optional>

#include "tests/browser/browser.h"
#include "web/event_hub.h"
#include "web/page_server.h"

namespace {

using browser::Browser;

std::unique_ptr<web::PageServer> ServePage(web::EventHub& hub, int port) {
  static constexpr web::Asset PAGE[] = {
      {"page", "text/html", "<!doctype html><title>Page</title><script type=module src=/page.js></script>"},
      {"page.js", "text/javascript",
       "import {openEvents} from './events.js'; import {change, make} from './dom.js';"
       "import {trying} from './live.js'; window.seen = [];"
       "openEvents('/events', {state: (data) => seen.push(data)}, (state) => seen.push(state));"
       "document.body.append(make('p', {id: 'text', title: false}, '<b>raw</b>'));"
       "window.fail = () => trying(() => change('/fail', {}));"},
  };
  auto server = std::make_unique<web::PageServer>(web::PageServerOptions{.name = "test page", .port = port});
  server->Get("/",
              [](const web::Visit&) { return web::Reply{.content_type = "text/html", .body = "hello"}; });
  server->Post("/fail",
               [](const web::Visit&) -> web::Reply { throw web::Refused(409, "It cannot be done."); });
  server->Stream("/events", hub, [](const web::Visit&) { return std::vector<std::string>{"state"}; });
  server->Serve(web::SharedAssets());
  server->Serve(PAGE);
  server->Start();
  return server;
}

TEST(PageTest, ThePageFollowsItsServerThroughARestart) {
  if (!browser::MissingBrowser().empty()) GTEST_SKIP() << browser::MissingBrowser();
  Browser& page = Browser::Shared();
  std::optional<web::EventHub> hub(std::in_place);
  hub->Publish("state", "{\"level\":7}");
  auto server = ServePage(*hub, 0);
  const std::string origin = "http://127.0.0.1:" + std::to_string(server->Port());
  page.Open(server->Address());
  EXPECT_EQ(origin + "/", page.Address()) << "the token stays in the address";
  page.Open(origin + "/page");
  page.Await("return seen.some((one) => one.level === 7)", "the state");
  EXPECT_EQ("<b>raw</b>", page.Text("#text"));
  page.Run("fail()");
  page.Await("return document.querySelector('.tell-failure')?.textContent === 'It cannot be done.'",
             "the sentence");
  EXPECT_EQ("It cannot be done.", page.Run("return document.querySelector('#live-assertive').textContent"));
  EXPECT_NE(std::string::npos, page.Complaints().find("409"));

  // A restart has new tokens: the page is told what to do.
  const int port = server->Port();
  hub->Close();
  server.reset();
  page.Await("return seen.includes('lost')", "the loss");
  hub.emplace();
  server = ServePage(*hub, port);
  page.Await("return seen.includes('refused')", "the refusal");
  page.Run("fetch(arguments[0])", {server->Address()});
  hub->Publish("state", "{\"level\":8}");
  page.Await("return seen.some((one) => one.level === 8)", "the new state");
  hub->Close();
}

}  // namespace
