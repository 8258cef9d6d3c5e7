// The display test and the GPIO-driven devices: every pixel, every value written.
#include <functional>
#include <thread>

#include "simulator/models/controls.h"
#include "simulator/models/front_panel.h"
#include "tests/phone/phone_test.h"

namespace {

using simulator::Framebuffer;
using simulator::TextControls;

constexpr uint32_t DISPLAY = 0x28;
constexpr uint32_t MOTOR = 0x2B;
constexpr uint32_t LED = 0x39;
constexpr uint32_t UART_LINE = 0x3A;

// The pixel at column x of row y.
using Picture = std::function<uint16_t(unsigned x, unsigned y)>;

class DisplayTest : public PhoneTest {
 protected:
  DisplayTest() {
    options.instant_sleeps = true;
    Boot();
  }

  int32_t Show(uint32_t fill, uint32_t border, uint32_t backlight) {
    return AskStatus(DISPLAY, Words({fill, border, backlight, 0xDEADBEEF}));
  }

  void ExpectPicture(const Picture& expected, const std::string& what) {
    const auto pixels = Phone().With<Framebuffer>([](Framebuffer& lcd) { return lcd.Pixels(); });
    ASSERT_EQ(pixels.size(), 240u * 320u);
    for (unsigned y = 0; y < 320; ++y) {
      for (unsigned x = 0; x < 240; ++x) {
        ASSERT_EQ(pixels[y * 240 + x], expected(x, y)) << what << ": column " << x << ", row " << y;
      }
    }
  }

  std::string Level() {
    return Phone().With<TextControls>([](TextControls& controls) { return controls.BacklightLevel(); });
  }
};

Picture Bordered(uint16_t fill, uint16_t border) {
  return [=](unsigned x, unsigned y) { return x == 0 || x == 239 || y == 0 || y == 319 ? border : fill; };
}

TEST_F(DisplayTest, DrawsEveryPatternToTheLastPixel) {
  struct Case {
    const char* what;
    uint32_t fill, border;
    Picture expected;
  };
  const Picture stripes_down = [](unsigned, unsigned y) -> uint16_t { return y / 16 % 2 == 0 ? 0 : 0xFFFF; };
  const Picture stripes_across = [](unsigned x, unsigned) -> uint16_t {
    return x / 12 % 2 == 0 ? 0 : 0xFFFF;
  };
  const Picture bars = [](unsigned x, unsigned) -> uint16_t {
    return x < 80 ? 0xF800 : x < 160 ? 0x07E0 : 0x001F;
  };
  const Case cases[] = {
      {"black after start-up", 0, 0, Bordered(0, 0)},
      {"colour and white border", 0x1234, 0xFFFF, Bordered(0x1234, 0xFFFF)},
      {"horizontal stripes", 0x1111, 0x1111, stripes_down},
      {"another border than the pattern draws nothing", 0x2222, 0x1111, stripes_down},
      {"vertical stripes", 0x2222, 0x2222, stripes_across},
      {"a border that has the pattern in its low half draws nothing", 0x3333, 0x13333, stripes_across},
      {"colour bars", 0x3333, 0x3333, bars},
      {"a pattern as border is a colour", 0x5555, 0x3333, Bordered(0x5555, 0x3333)},
      {"a pattern in the low half is a colour", 0x10001111, 0x10001111, Bordered(0x1111, 0x1111)},
      {"colours are the low halves, signs and all", 0xFFFFFFFF, 0x8000001F, Bordered(0xFFFF, 0x001F)},
  };
  for (const Case& c : cases) {
    if (c.fill != 0) {
      EXPECT_EQ(Show(c.fill, c.border, 7), 0) << c.what;
    }
    ExpectPicture(c.expected, c.what);
  }
  std::ifstream maps(fmt::format("/proc/{}/maps", Phone().ServerProcess()));
  const std::string mapped{std::istreambuf_iterator<char>(maps), {}};
  EXPECT_NE(mapped.find("[stack]"), std::string::npos);
  EXPECT_EQ(mapped.find("memfd:device"), std::string::npos) << "no picture stays mapped";
}

TEST_F(DisplayTest, WritesTheBacklightsLevelAsOneValue) {
  for (const auto& [level, text] :
       {std::pair{100u, "100"}, {0u, "0"}, {0xFFFFFFFFu, "-1"}, {0x80000000u, "-2147483648"}}) {
    MarkJournal();
    EXPECT_EQ(Show(0x3333, 0, level), 0) << "nothing is drawn, but the level is set";
    EXPECT_EQ(Level(), text);
    EXPECT_EQ(LinesSince(), (Lines{"open /dev/fb/0 rw+cloexec", "open /proc/backlight/lcd w+cloexec",
                                   "value /proc/backlight/lcd \"" + std::string(text) + "\""}));
  }
}

TEST_F(DisplayTest, ReportsAFramebufferThatCannotBeOpenedOrMapped) {
  EXPECT_EQ(Show(0xFFFF, 0xFFFF, 55), 0);
  Phone().With<Framebuffer>([](Framebuffer& lcd) { lcd.state.refuses_mapping = true; });
  EXPECT_EQ(Show(0, 0, 100), OUT_OF_MEMORY);
  Phone().With<Framebuffer>([](Framebuffer& lcd) { lcd.state.refuses_mapping = false; });
  Phone().TakeAway("/dev/fb/0");
  EXPECT_EQ(Show(0, 0, 100), GENERAL_FAILURE);
  EXPECT_EQ(Level(), "55") << "the backlight is not changed";
  Phone().PutBack("/dev/fb/0");
  ExpectPicture(Bordered(0xFFFF, 0xFFFF), "picture after failures");

  Phone().TakeAway("/proc/backlight/lcd");
  EXPECT_EQ(Show(0xF800, 0xF800, 1), 0) << "a missing backlight is not reported";
  ExpectPicture(Bordered(0xF800, 0xF800), "picture without backlight");
}

TEST_F(DisplayTest, SwitchesMotorLedAndUartLineThroughTheShell) {
  struct Case {
    uint32_t code, value;
    Lines commands;
    Lines values;
  };
  const std::string force_off = "/proc/cLED_wlpg/force_led_off", timing = "/proc/cLED_wlpg/timing";
  const auto led = [&](const std::string& colour) {
    return std::pair{Lines{"shell echo 0 >  " + force_off, "shell echo 519 >  " + timing,
                           "shell echo " + colour + " > /proc/cLED_wlpg/color"},
                     Lines{"value " + force_off + " \"0\\n\"", "value " + timing + " \"519\\n\"",
                           "value /proc/cLED_wlpg/color \"" + colour + "\\n\""}};
  };
  const Case cases[] = {
      {MOTOR, 1, {"shell echo 1 > /proc/gpio/motor"}, {"value /proc/gpio/motor \"1\\n\""}},
      {MOTOR, 5, {"shell echo 1 > /proc/gpio/motor"}, {"value /proc/gpio/motor \"1\\n\""}},
      {MOTOR, 0, {"shell echo 0 > /proc/gpio/motor"}, {"value /proc/gpio/motor \"0\\n\""}},
      {LED, 4, led("4").first, led("4").second},
      {LED, 0xFFFFFFFF, led("-1").first, led("-1").second},
      {UART_LINE, 1, {"shell echo 1 > /proc/gpio/gsm_uart_rx"}, {"value /proc/gpio/gsm_uart_rx \"1\\n\""}},
      {UART_LINE,
       0x80000000,
       {"shell echo -2147483648 > /proc/gpio/gsm_uart_rx"},
       {"value /proc/gpio/gsm_uart_rx \"-2147483648\\n\""}},
  };
  for (const Case& c : cases) {
    MarkJournal();
    EXPECT_EQ(AskStatus(c.code, Words({c.value, 0x55})), 0);
    EXPECT_EQ(LinesSince(OfKind({JournalKind::Shell})), c.commands);
    EXPECT_EQ(LinesSince(OfKind({JournalKind::Value})), c.values);
  }
  for (const auto* path : {"/proc/gpio/motor", "/proc/gpio/gsm_uart_rx", "/proc/cLED_wlpg/color"}) {
    Phone().TakeAway(path);
  }
  for (const uint32_t code : {MOTOR, LED, UART_LINE}) {
    EXPECT_EQ(AskStatus(code, Words({1, 0})), 0) << "the shell's failure is not reported";
  }
}

}  // namespace
