// The touchscreen test: its crosses pixel by pixel, the ranges of the panel's readings, its thread's life.
#include <functional>
#include <thread>

#include "simulator/models/controls.h"
#include "simulator/models/front_panel.h"
#include "tests/phone/phone_test.h"
#include "tests/phone/processes.h"

namespace {

using simulator::FaultCall;
using simulator::Framebuffer;
using simulator::TouchPanel;

constexpr uint32_t TOUCH = 0x2D;
constexpr uint32_t STOP = 0, RESTART = 1, STATE = 2, OTHER_MODE = 3;
constexpr char PANEL[] = "/dev/touchscreen/tsc2046";
const std::string PANEL_OPEN = "open /dev/touchscreen/tsc2046 r+nonblock+cloexec";

struct Cross {
  unsigned cx, cy;
  uint32_t lowest_x, highest_x, lowest_y, highest_y;  // of the panel
};
constexpr Cross CROSSES[] = {{20, 20, 280, 680, 360, 760},
                             {220, 20, 280, 680, 3360, 3760},
                             {20, 300, 3400, 3800, 360, 760},
                             {220, 300, 3400, 3800, 3360, 3760},
                             {120, 160, 1848, 2248, 1848, 2248}};
constexpr int32_t ALL = 31;

using Picture = std::vector<uint16_t>;

Picture Filled(uint16_t colour) {
  return Picture(240 * 320, colour);
}

// White, with the crosses of a mask in black. A line of dots, each of which is a block of 4 x 4 pixels with
// its corner on the line, covers a rectangle: 17 + 3 pixels along the line, 4 across.
Picture Crosses(int32_t mask) {
  Picture picture = Filled(0xFFFF);
  const auto blacken = [&](unsigned left, unsigned top, unsigned width, unsigned height) {
    for (unsigned y = top; y < top + height; ++y) {
      for (unsigned x = left; x < left + width; ++x) picture[y * 240 + x] = 0;
    }
  };
  for (unsigned k = 0; k < 5; ++k) {
    if ((mask >> k & 1) == 0) continue;
    blacken(CROSSES[k].cx - 8, CROSSES[k].cy, 20, 4);
    blacken(CROSSES[k].cx, CROSSES[k].cy - 8, 4, 20);
  }
  return picture;
}

Lines Shown(const std::string& level) {
  return {"open /dev/fb/0 rw+cloexec", "open /proc/backlight/lcd w+cloexec",
          "value /proc/backlight/lcd \"" + level + "\""};
}
const Lines STARTED = Shown("100") + Lines{"open /dev/fb/0 rw+cloexec", PANEL_OPEN};

class Touch : public PhoneTest {
 protected:
  Touch() {
    options.instant_sleeps = true;
    Boot();
    EXPECT_TRUE(StillAnswers());  // and has closed what its start opened
    MarkJournal();
    threads_ = Threads(Phone().ServerProcess());
    descriptors_ = OpenDescriptors(Phone().ServerProcess());
  }

  int32_t Control(uint32_t mode) {
    const Bytes answer = Ask(TOUCH, Words({mode, 0xDEADBEEF}), 12);
    EXPECT_EQ(Bytes(answer.begin() + 4, answer.end()), Bytes(8));
    return StatusOf(answer);
  }
  // Starts a run and waits until its thread reads the panel.
  void Start(uint32_t mode = RESTART) {
    MarkJournal();
    EXPECT_EQ(Control(mode), SUCCESS);
    EXPECT_EQ(Control(STATE), ALL);
    EXPECT_TRUE(Appears(LineIs(PANEL_OPEN)));
  }
  void TouchPanelAt(uint32_t x, uint32_t y, uint32_t pen = 1) {
    Phone().With<TouchPanel>([=](TouchPanel& panel) { panel.Deliver({4096 - x, 4096 - y, pen}); });
  }
  bool Becomes(int32_t result) {
    return Eventually([&] { return Control(STATE) == result; });
  }
  // The thread draws after it has set its result.
  bool Shows(const Picture& expected) {
    return Eventually(
        [&] { return Phone().With<Framebuffer>([](Framebuffer& lcd) { return lcd.Pixels(); }) == expected; });
  }
  bool IsIdle() {
    return ComesToThreads(Phone().ServerProcess(), threads_) &&
           OpenDescriptors(Phone().ServerProcess()) == descriptors_;
  }

  size_t threads_, descriptors_;
};

TEST_F(Touch, ShowsCrossesUntilTheyAreTouched) {
  EXPECT_EQ(Control(STATE), ALL) << "before any run";
  EXPECT_EQ(Control(STOP), SUCCESS) << "nothing to stop";
  EXPECT_EQ(LinesSince(), Lines());

  Start();
  EXPECT_TRUE(Shows(Crosses(ALL)));
  EXPECT_EQ(LinesSince(), STARTED);
  EXPECT_EQ(OpenDescriptors(Phone().ServerProcess()), descriptors_ + 1)
      << "the panel; the frame stays mapped";
  int32_t left = ALL;
  for (unsigned k = 0; k < 5; ++k) {
    // In screen coordinates, at any pixel of the cross.
    const std::string x = std::to_string(CROSSES[k].cx + 2 * k - 4), y = std::to_string(CROSSES[k].cy + 3);
    EXPECT_NE(Phone().Command({"touch", x, y}), "No program reads the touch panel.\n");
    left &= ~(1 << k);
    EXPECT_TRUE(Becomes(left)) << "cross " << k;
    EXPECT_TRUE(Shows(Crosses(left))) << "cross " << k;
  }
  // A cross can be touched again and stays erased.
  Phone().Command({"touch", "20", "20"});
  EXPECT_EQ(Control(STATE), 0);
  EXPECT_TRUE(Shows(Filled(0xFFFF)));

  EXPECT_EQ(Control(STOP), SUCCESS);
  EXPECT_TRUE(Appears(LineIs(Shown("0").back())));
  EXPECT_EQ(LinesSince(), STARTED + Shown("0"));
  EXPECT_TRUE(Shows(Filled(0)));
  EXPECT_TRUE(IsIdle());
  EXPECT_EQ(Control(STATE), 0) << "the result is kept";
  EXPECT_EQ(Control(STOP), SUCCESS);
  EXPECT_EQ(Phone().Command({"touch", "20", "20"}), "No program reads the touch panel.\n");

  Start();
  EXPECT_TRUE(Shows(Crosses(ALL)));
}

TEST_F(Touch, AcceptsEachRangeWithBothEndsAndNothingBeyond) {
  const auto touch_beyond = [this](const Cross& cross) {
    const uint32_t x = (cross.lowest_x + cross.highest_x) / 2, y = (cross.lowest_y + cross.highest_y) / 2;
    TouchPanelAt(cross.lowest_x - 1, y);
    TouchPanelAt(cross.highest_x + 1, y);
    TouchPanelAt(x, cross.lowest_y - 1);
    TouchPanelAt(x, cross.highest_y + 1);
    TouchPanelAt(x, y, 0);  // the pen is up
  };
  for (unsigned first : {0u, 1u}) {
    Start();
    for (const Cross& cross : CROSSES) touch_beyond(cross);
    TouchPanelAt(4096, 4096);       // a reading of 0
    TouchPanelAt(0x80000000, 500);  // more than a 12-bit converter can read
    // Readings are handled in order: when the first match shows, nothing before it has cleared another bit.
    // The second run, which begins with another cross, does the same for the first.
    int32_t left = ALL;
    for (unsigned i = 0; i < 5; ++i) {
      const unsigned k = (first + i) % 5;
      const Cross& cross = CROSSES[k];
      if (first == 0) {
        TouchPanelAt(cross.lowest_x, cross.lowest_y);
      } else {
        TouchPanelAt(cross.highest_x, cross.highest_y, 0x80000000);  // any pen word but 0 is down
      }
      left &= ~(1 << k);
      EXPECT_TRUE(Becomes(left)) << "cross " << k << ", left " << Control(STATE);
    }
  }
}

TEST_F(Touch, IgnoresShortReadings) {
  Start();
  for (size_t size : {4u, 11u}) {
    Phone().With<TouchPanel>([&](TouchPanel& panel) { panel.state.reading_bytes = size; });
    TouchPanelAt(480, 560);
  }
  Phone().With<TouchPanel>([](TouchPanel& panel) { panel.state = {}; });
  TouchPanelAt(480, 3560);
  EXPECT_TRUE(Becomes(ALL & ~2));
}

TEST_F(Touch, ReportsWhyARunCouldNotStart) {
  const auto fail_open = [this](const char* path, int nth) {
    return [this, path, nth] { Phone().GetFaults().FailOpen(path, ENODEV, nth); };
  };
  struct Case {
    const char* what;
    std::function<void()> fault;
    int32_t result;
    Picture picture;
    size_t lines;
  };
  const Case cases[] = {
      {"no framebuffer", fail_open("/dev/fb/0", 1), OPEN_FAILED, Filled(0), 2},
      {"framebuffer gone after the white screen", fail_open("/dev/fb/0", 2), OPEN_FAILED, Filled(0xFFFF), 4},
      {"framebuffer not to be mapped",
       [this] {
         Phone().GetFaults().Add({.call = FaultCall::Open, .path = "/dev/fb/0", .nth = 2, .size = 0});
       },
       OUT_OF_MEMORY, Filled(0xFFFF), 4},
      {"no panel", fail_open(PANEL, 1), TOUCH_NOT_OPENED, Crosses(ALL), 5},
  };
  for (const Case& c : cases) {
    MarkJournal();
    c.fault();
    EXPECT_EQ(Control(RESTART), SUCCESS) << c.what;
    EXPECT_TRUE(Becomes(c.result)) << c.what << ": " << Control(STATE);
    EXPECT_TRUE(IsIdle()) << c.what;
    EXPECT_TRUE(Shows(c.picture)) << c.what;
    EXPECT_EQ(LinesSince().size(), c.lines) << c.what;
    Phone().GetFaults().Clear();
    EXPECT_EQ(Control(STOP), SUCCESS) << c.what;
    EXPECT_EQ(Control(STATE), c.result) << "the result is kept";
    Start();
    EXPECT_EQ(Control(STOP), SUCCESS);
    EXPECT_TRUE(Shows(Filled(0)));
  }
}

TEST_F(Touch, RestartsARunAndRunsTwoAtOnce) {
  Start();
  TouchPanelAt(480, 560);
  EXPECT_TRUE(Becomes(ALL & ~1));
  Start();
  EXPECT_EQ(LinesSince(), Shown("0") + Lines{"sleep 1.000"} + STARTED) << "mode 1 stops the run before";
  EXPECT_TRUE(ComesToThreads(Phone().ServerProcess(), threads_ + 1));

  // Any other mode starts a second thread while the first runs, on purpose.
  Start(OTHER_MODE);
  EXPECT_EQ(LinesSince(), STARTED);
  EXPECT_TRUE(ComesToThreads(Phone().ServerProcess(), threads_ + 2));
  TouchPanelAt(480, 560);
  EXPECT_TRUE(Becomes(ALL & ~1));
  MarkJournal();
  EXPECT_EQ(Control(STOP), SUCCESS);
  EXPECT_TRUE(IsIdle()) << "both end";
  EXPECT_EQ(LinesSince(LineIs("open /dev/fb/0 rw+cloexec")).size(), 2u);

  Start(0xFFFFFFFF);
  EXPECT_TRUE(ComesToThreads(Phone().ServerProcess(), threads_ + 1));
  EXPECT_EQ(Control(STOP), SUCCESS);
  EXPECT_TRUE(IsIdle());
}

TEST_F(Touch, AFailedStartLeavesTheResultToTheRunningThread) {
  Start();
  TouchPanelAt(480, 560);
  EXPECT_TRUE(Becomes(ALL & ~1));
  Phone().GetFaults().Add({.call = FaultCall::Thread, .error = EAGAIN, .delay = 700ms});
  SendCommand(TOUCH, Words({OTHER_MODE, 0}));
  std::this_thread::sleep_for(200ms);
  TouchPanelAt(2048, 2048);  // while the start is about to fail
  EXPECT_EQ(StatusOf(host.Receive(12)), GENERAL_FAILURE);
  EXPECT_EQ(Control(STATE), ALL & ~1 & ~16);
}

TEST_F(Touch, ReportsAThreadThatCannotBeCreated) {
  Start();
  TouchPanelAt(480, 560);
  EXPECT_TRUE(Becomes(ALL & ~1));
  Phone().GetFaults().Add({.call = FaultCall::Thread, .times = 2, .error = EAGAIN});
  EXPECT_EQ(Control(RESTART), GENERAL_FAILURE) << "and the run before has been stopped";
  EXPECT_TRUE(IsIdle());
  EXPECT_EQ(Control(STATE), ALL & ~1);
  MarkJournal();
  EXPECT_EQ(Control(OTHER_MODE), GENERAL_FAILURE);
  EXPECT_EQ(LinesSince(), Lines());
  Start();
  EXPECT_EQ(LinesSince(), STARTED) << "the running flag was clear: nothing to stop first";
}

}  // namespace
