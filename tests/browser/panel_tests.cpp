// The phone's page, as a person uses it: what the LCD shows, keys and pen, sound, cable, faults, restart.
#include <fmt/format.h>
#include <httplib.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "protocol/selectors.h"
#include "tests/browser/panel_test.h"

namespace {

using browser::Json;

// Compares the canvas with three columns of bars of 80 pixels, red, green and blue.
constexpr char BARS_STAND[] = R"(
  const data = document.querySelector('#lcd').getContext('2d').getImageData(0, 0, 240, 320).data;
  for (let place = 0; place < 240 * 320; ++place) {
    const column = place % 240;
    const wanted = column < 80 ? [255, 0, 0] : column < 160 ? [0, 255, 0] : [0, 0, 255];
    for (let part = 0; part < 3; ++part) if (data[4 * place + part] !== wanted[part]) return false;
  }
  return true;)";

TEST_F(PanelTest, ThePageShowsLcdLightsMotorAndExchange) {
  ASSERT_EQ(0, Phonetest("display colour-bars").status);
  Page().Await(BARS_STAND, "colour bars on the canvas");
  const std::string dim = "return Number(document.querySelector('#dimmer').style.opacity)";
  Page().Await(dim + " === 0", "a bright LCD");
  ASSERT_EQ(0, Phonetest("display solid white --backlight 20").status);
  Page().Await(dim + " > 0.3", "a dimmed LCD");
  ASSERT_EQ(0, Phonetest("display colour-bars").status);
  ASSERT_EQ(0, Phonetest("motor on").status);
  ASSERT_EQ(0, Phonetest("led 4").status);
  Page().Await("return document.querySelector('#phone.shaking.led-on') !== null", "motor and LED");
  EXPECT_EQ("#4d8dff", Page().Run("return document.querySelector('#phone').style.getPropertyValue('--led')"));
  ASSERT_EQ(0, Phonetest("motor off").status);
  Page().Await("return document.querySelector('#phone.shaking') === null", "a motor that stands still");

  // The journal tells of it, filtered if wished; a command's line shows its exchange.
  Page().Await(
      "return [...document.querySelectorAll('#journal li')].some("
      "(line) => line.textContent.includes('value /proc/gpio/motor'))",
      "the journal");
  Page().Click("#kind option[value=command]");
  EXPECT_EQ(0, Page().Run("return [...document.querySelectorAll('#journal li')].filter("
                          "(line) => !line.hidden && line.dataset.kind !== 'command').length"));
  Page().Await(
      "const lines = [...document.querySelectorAll('#journal .command button')];"
      "const line = lines.find((one) => one.textContent.startsWith('LED 0x39: status 0'));"
      "if (line) line.click(); return line !== undefined",
      "the LED's exchange");
  const std::string exchange = Page().Text("#exchange");
  EXPECT_NE(std::string::npos, exchange.find("colour 4 colour number")) << exchange;
  EXPECT_NE(std::string::npos, exchange.find("0400000000000000")) << exchange;
  Shoot("panel");
  Page().PreferColours("dark");
  Shoot("panel-dark");
  Page().PreferColours("light");
  Page().Resize(390, 844);
  Shoot("panel-telephone");
  Page().Open(Origin() + "/");
  Page().Await(
      "const lcd = document.querySelector('.small-lcd'); return lcd !== null && "
      "lcd.getContext('2d').getImageData(0, 0, 1, 1).data[0] === 255",
      "the list's small LCD");
  EXPECT_EQ("shown", Page().Text(".phone-card strong"));
  Page().Resize(1280, 800);
  Shoot("phones");
}

TEST_F(PanelTest, KeysAndPenReachTheServer) {
  // Held with the PC's key, then by the pointer.
  Page().KeyDown("q");
  Page().Await("return document.querySelector('[data-key=macro]').classList.contains('held')", "a held key");
  const Finished by_key = Phonetest("key wait");
  EXPECT_NE(std::string::npos, by_key.output.find("macro")) << by_key.output;
  Page().KeyUp("q");
  Phonetest("key poll");  // the release
  Page().PointerDown("[data-key=cancel]", 20, 20);
  const Finished by_pointer = Phonetest("key wait");
  EXPECT_NE(std::string::npos, by_pointer.output.find("cancel")) << by_pointer.output;
  Page().PointerUp();
  Page().Await("return document.querySelector('.held') === null", "a released key");

  ASSERT_EQ(0, Phonetest("touch start").status);
  for (const TouchCross& cross : TOUCH_CROSSES) {
    Page().PointerDown("#lcd", cross.x - 6, cross.y + 6);
    Page().PointerMove("#lcd", cross.x, cross.y);
    Page().PointerUp();
  }
  // A pen that leaves the screen stays at its edge.
  Page().PointerDown("#lcd", 232, 312);
  Page().PointerMove("#lcd", 244, 324);
  Page().PointerUp();
  EXPECT_EQ("", Page().Complaints());
  const Finished crosses = Phonetest("touch watch");
  EXPECT_EQ(0, crosses.status) << crosses.output;
}

TEST_F(PanelTest, AToneIsHeardInThePage) {
  // The server's tones are steps of 44100 / 512 Hz: this one has eleven.
  ASSERT_EQ(0, Phonetest("tone start 1000").status);
  Page().Await(
      "const text = document.querySelector('#frequencies').textContent;"
      "return Math.abs(parseFloat(text) - 947.5) < 2",
      "the measured frequency");
  // A sine of half the full scale.
  Page().Await("return document.querySelector('#meter').getAttribute('aria-valuenow') === '-6'", "the level");
  Page().Run(
      "const start = AudioBufferSourceNode.prototype.start; window.loudest = 0;"
      "AudioBufferSourceNode.prototype.start = function (...when) {"
      "  window.loudest = Math.max(window.loudest, ...this.buffer.getChannelData(0));"
      "  return start.apply(this, when);"
      "}; return true");
  Page().Click("#listen");
  Page().Await("return Math.abs(window.loudest - 0.5) < 0.01", "half the full scale in the page's audio");
  Page().Await("return import('/sound.js').then((sound) => Math.abs(sound.heardFrequency() - 947.5) < 4)",
               "the tone in the page's audio");
  Shoot("panel-sound");
  ASSERT_EQ(0, Phonetest("tone stop").status);
  Page().Await("return document.querySelector('#frequencies').textContent === 'silent'", "silence");
}

TEST_F(PanelTest, CableFaultsCameraAndBatteryAreSwitches) {
  constexpr int LINK_FAILED = 3;
  Page().Click("#cable");
  Page().Await("return document.querySelector('#phone.unplugged') !== null", "a drawn cable");
  EXPECT_EQ(LINK_FAILED, Phonetest("--timeout 1000 ping").status);
  Page().Click("#cable");
  Page().Await("return document.querySelector('#phone.unplugged') === null", "a plugged cable");
  while (Phonetest("--timeout 1000 ping").status != 0)
    continue;  // the server looks for the port once a second

  Page().Click("#fault-device option[value='/dev/misc/rtc']");
  Page().Click("#fault-form .primary");
  Page().Await(
      "return document.querySelector('#faults code')?.textContent.startsWith('request /dev/misc/rtc "
      "error=EIO')",
      "the active fault");
  EXPECT_EQ(1, Phonetest("clock get").status);
  Page().Click("#faults button");
  Page().Await("return document.querySelector('#faults code') === null", "no fault");
  EXPECT_EQ(0, Phonetest("clock get").status);

  for (const char* state : {"true", "false"}) {
    Page().Click("#card-locked");
    Page().Await(
        "return document.querySelector('#card-locked').getAttribute('aria-pressed') === arguments[0]",
        "the card's switch", {state});
  }

  Page().Click("[data-defect='dust 12']");
  Page().Await(
      "return document.querySelector('[data-defect=\"dust 12\"]').getAttribute('aria-pressed') === 'true' &&"
      "document.querySelector('#preview').naturalWidth === 240",
      "a dusty preview");
  EXPECT_NE(std::string::npos, Phonesim("camera").output.find("12 grains of dust"));

  ASSERT_EQ(0, Phonetest("bluetooth address").status);
  Page().Await(
      "const log = document.querySelector('#bluetooth').textContent;"
      "return log.includes('bt_cit_test -f2') && log.includes('Status=0; ResultA=00:02:5B:0A:FF:10')",
      "the Bluetooth tool's call and what it printed");

  EXPECT_NE(std::string::npos, Page().Text("#journal").find("bt_cit_test"));

  // The phone is away for a moment, and what was in flash is there again.
  ASSERT_EQ(0, Phonetest("--yes identity write 004999010640000").status);
  Page().Click("#restart");
  Page().Await("return document.querySelector('#records').textContent.includes('004999010640000')",
               "the kept identity");
  EXPECT_EQ("running", Page().Text("#link"));
  EXPECT_EQ(std::string::npos, Page().Text("#journal").find("bt_cit_test")) << "of the phone before";
  ASSERT_EQ(0, Phonetest("display colour-bars").status);
  Page().Await(BARS_STAND, "the LCD of the phone that has started anew");
  Page().Click("#power-cut");
  Page().Await("return document.querySelector('#faults code') !== null", "the fault");
  Phonetest(fmt::format("--yes --timeout 1000 partition-word {}", 7));
  Page().Await("return document.querySelector('#faults code') === null", "the phone after the power cut");
  EXPECT_EQ(0, Phonetest("ping").status);
}

TEST_F(PanelTest, TenViewersAndNoForeignPage) {
  // A page from another port of this machine: the browser sends the cookie with it, and the origin.
  httplib::Server foreign;
  foreign.Get("/", [](const httplib::Request&, httplib::Response& response) {
    response.set_content("<!doctype html><title>Foreign</title>", "text/html");
  });
  const int port = foreign.bind_to_any_port("127.0.0.1");
  const std::jthread serving([&](const std::stop_token&) { foreign.listen_after_bind(); });
  const std::shared_ptr<void> ends(nullptr, [&](void*) { foreign.stop(); });
  Page().Open("http://127.0.0.1:" + std::to_string(port));
  Page().Run(
      "return fetch(arguments[0], {method: 'POST', mode: 'no-cors', credentials: 'include',"
      "body: '{\"words\": [\"key\", \"power\"]}'}).catch(() => true)",
      {Origin() + "/phone/shown/command"});
  Page().Complaints();  // the refusal
  EXPECT_NE(std::string::npos, Phonetest("key poll").output.find("new:   no"))
      << Phonetest("key poll").output;

  // Ten viewers, one of which takes nothing: the others see what happens, and commands are answered.
  const auto token = httplib::Client(Origin()).Get(address_.substr(Origin().size()));
  const std::string set_cookie = token->get_header_value("Set-Cookie");
  const httplib::Headers cookie = {{"Cookie", set_cookie.substr(0, set_cookie.find(';'))}};
  std::atomic<int> connected = 0, seen = 0;
  std::vector<std::jthread> viewers;
  for (int number = 0; number < 10; ++number) {
    viewers.emplace_back([&, number] {
      std::string text;
      int pictures = 0;
      httplib::Client client(Origin());
      client.Get("/events?topic=shown/lcd", cookie, [&](const char* bytes, size_t size) {
        text.append(bytes, size);
        for (size_t end; (end = text.find("\n\n")) != std::string::npos; text.erase(0, end + 2)) {
          if (!text.starts_with("event: shown/lcd")) continue;
          if (++pictures == 1) ++connected;
        }
        if (number == 0) {
          while (seen < 9) std::this_thread::yield();
        }
        if (pictures < 2) return true;
        ++seen;
        return false;
      });
    });
  }
  while (connected < 10) std::this_thread::yield();
  ASSERT_EQ(0, Phonetest("display solid white").status);
  for (std::jthread& viewer : viewers) viewer.join();
  EXPECT_EQ(10, seen);
}

}  // namespace
