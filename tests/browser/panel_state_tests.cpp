// What the phone's page shows of the phone, and what its switches do to the phone.
#include <chrono>
#include <map>
#include <string>

#include "tests/browser/panel_test.h"

namespace {

enum class By { Phonesim, Phonetest };

struct Shown {
  By by;
  const char* words;
  const char* expression;
  const char* text;  // what the expression becomes
};

#define TEXT_OF(selector) "document.querySelector('" selector "').textContent"
#define PRESSED(selector) "document.querySelector('" selector "').getAttribute('aria-pressed')"

const Shown SHOWN[] = {
    {By::Phonetest, "radio play 98.5 --volume 30000", TEXT_OF("#radio"),
     "98.50 MHz, volume 30000, signal 46000"},
    {By::Phonetest, "radio play 98.5 --volume 0", TEXT_OF("#radio"), "98.50 MHz, muted, signal 46000"},
    {By::Phonetest, "radio tune 98.5",
     "parseFloat(document.querySelector('#radio-meter i').style.width).toFixed(1)", "70.2"},
    {By::Phonesim, "modem signal 7", TEXT_OF("#modem"), "7 of 31, state word 1"},
    {By::Phonesim, "gpio modem-state 3", TEXT_OF("#modem"), "7 of 31, state word 3"},
    {By::Phonesim, "modem silent on", TEXT_OF("#modem"), "7 of 31, state word 3, silent"},
    {By::Phonesim, "modem silent off", "document.querySelector('#signal').value", "7"},
    {By::Phonetest, "at at+cgmi", "/→ at\\+cgmi/.test(" TEXT_OF("#at") ")", "true"},
    {By::Phonesim, "modem sim off", PRESSED("#sim"), "false"},
    {By::Phonesim, "card remove", PRESSED("#card"), "false"},
    {By::Phonesim, "clock stop", "''", ""},
    {By::Phonesim, "clock 2006-01-15 08:30:00", TEXT_OF("#clock"), "2006-01-15 08:30:00"},
    {By::Phonesim, "touch noise 9", TEXT_OF("#noise-value"), "± 9 counts"},
    {By::Phonetest, "display solid white --backlight 25", "document.querySelector('#dimmer').style.opacity",
     "0.46"},
    {By::Phonetest, "display solid white --backlight 0", "document.querySelector('#dimmer').style.opacity",
     "0.92"},
    {By::Phonetest, "led 5", "document.querySelector('#phone.led-blinks').style.getPropertyValue('--led')",
     "#ff5df1"},
    {By::Phonetest, "led 1", "document.querySelector('#phone').style.getPropertyValue('--led-period')",
     "1125ms"},
    {By::Phonetest, "led 0", "document.querySelector('#phone').classList.contains('led-on')", "false"},
    {By::Phonetest, "motor on", "document.querySelector('[data-lamp=Motor].on').textContent", "Motor on"},
    {By::Phonetest, "motor off", "document.querySelector('[data-lamp=Motor]:not(.on)').textContent",
     "Motor off"},
    {By::Phonetest, "audio-path on 3", TEXT_OF("#sound-path"), "earpiece"},
    {By::Phonetest, "audio-path on 3", "/audio-a on, audio-b/.test(" TEXT_OF("#lines") ")", "true"},
    {By::Phonetest, "audio-path off", TEXT_OF("#sound-path"), "no path"},
    {By::Phonesim, "fault request /dev/misc/rtc error=EIO times=always", TEXT_OF("#fault-count"), "1 active"},
};

TEST_F(PanelTest, ThePageShowsWhatThePhoneIsLike) {
  for (const Shown& shown : SHOWN) {
    const Finished done = shown.by == By::Phonesim ? Phonesim(shown.words) : Phonetest(shown.words);
    ASSERT_EQ(0, done.status) << shown.words << ": " << done.output;
    Page().Await(std::string("try { return String(") + shown.expression +
                     ") === arguments[0]; } catch { return false; }",
                 shown.words, {shown.text});
  }
}

// Chooses a value as a person does.
constexpr char CHOOSE[] =
    "const place = document.querySelector(arguments[0]); place.value = arguments[1];"
    "place.dispatchEvent(new Event('change', {bubbles: true})); return true";

TEST_F(PanelTest, ThePagesSwitchesReachThePhone) {
  const auto becomes = [this](const std::string& words, const std::string& text) {
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(30);
    std::string output = Phonesim(words).output;
    while (output.find(text) == std::string::npos && std::chrono::steady_clock::now() < end) {
      output = Phonesim(words).output;
    }
    EXPECT_NE(std::string::npos, output.find(text)) << words << ", not " << text << ": " << output;
  };
  Page().Run(CHOOSE, {"#signal", "12"});
  becomes("modem", "signal 12");
  Page().Run(CHOOSE, {"#noise", "5"});
  becomes("state", "\"touch_noise\":5");
  for (const char* sim : {"off", "on"}) {
    Page().Click("#sim");
    becomes("modem", std::string("sim ") + sim);
    Page().Await(
        "return String(document.querySelector('#sim').getAttribute('aria-pressed') === 'true') === "
        "arguments[0]",
        "the SIM's switch", {std::string(sim) == "on" ? "true" : "false"});
  }
  ASSERT_EQ(0, Phonesim("clock 2006-01-15 08:30:00").status);
  const std::string before = Page().Run("return new Date().toLocaleString('sv-SE')");
  Page().Click("#clock-set");
  becomes("clock", before.substr(0, 13));

  // Once: the next request is served again.
  Page().Click("#fault-device option[value='/dev/misc/rtc']");
  Page().Click("#fault-times option[value='1']");
  Page().Click("#fault-form .primary");
  becomes("state", "times=1");
  EXPECT_EQ(1, Phonetest("clock get").status);
  EXPECT_EQ(0, Phonetest("clock get").status);
  ASSERT_EQ(0, Phonesim("fault open /dev/fb/0 error=EIO").status);
  Page().Click("#clear-faults");
  becomes("state", "\"faults\":[]");

  for (const auto& [defect, text] : std::map<std::string, std::string>{{"dust", "grains of dust"},
                                                                       {"row", "dead row"},
                                                                       {"blur", "out of focus"},
                                                                       {"tint", "tint"},
                                                                       {"shading", "corners"}}) {
    const std::string button = "[data-defect^=" + defect + "]";
    for (const bool on : {true, false}) {
      Page().Click(button);
      Page().Await(
          "return document.querySelector(arguments[0]).getAttribute('aria-pressed') === arguments[1]", button,
          {button, on ? "true" : "false"});
      EXPECT_EQ(Phonesim("camera").output.find(text) != std::string::npos, on) << text;
    }
  }
}

}  // namespace
