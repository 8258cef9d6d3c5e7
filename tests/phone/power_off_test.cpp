// Switching the phone off: the order of what is done, and that nothing is answered.
#include "tests/phone/call_tracer.h"
#include "tests/phone/phone_test.h"

namespace {

using simulator::PhoneEnd;

constexpr char GPIO[] = "/dev/misc/omap730_gpio";

class PowerOffTest : public PhoneTest {
 protected:
  PowerOffTest() {
    // A traced process cannot be checked for leaks at its end, so a sanitizer's build would fail.
    options.environment.emplace_back("ASAN_OPTIONS=detect_leaks=0");
  }

  // Sends the command and waits for the end. Returns what the server itself did, in order.
  Lines SwitchOff() {
    Lines steps;
    const CallTracer tracer(Phone().ServerProcess(), [&](const TracedCall& call) -> CallFate {
      if (call.thread != Phone().ServerProcess()) return {};
      if (call.IsClose() && call.DescriptorPath().starts_with("/dev/pts/")) {
        steps = LinesSince();
        steps.push_back("channel closed");
        MarkJournal();
      }
      return {};
    });
    SendCommand(0x02, Words({0}));
    const auto end = Phone().WaitForEnd(60s);
    EXPECT_TRUE(end && end->reason == PhoneEnd::Reason::PoweredOff && end->status == 0);
    for (const std::string& line :
         LinesSince(AtPath(GPIO) || OfKind({JournalKind::Shell, JournalKind::Event}))) {
      steps.push_back(line);
    }
    EXPECT_TRUE(host.IsQuiet()) << "there is no answer";
    return steps;
  }
};

TEST_F(PowerOffTest, SleepsClosesTheChannelTellsTheDriverAndPowersOff) {
  Boot();
  const auto asked = std::chrono::steady_clock::now();
  EXPECT_EQ(SwitchOff(), (Lines{"sleep 1.000", "channel closed", "open /dev/misc/omap730_gpio rw+cloexec",
                                "request /dev/misc/omap730_gpio 0x40044F3E", "shell /sbin/poweroff",
                                "event power off", "event powered off"}));
  EXPECT_GE(std::chrono::steady_clock::now() - asked, 1s);
}

TEST_F(PowerOffTest, NeedsNoDriver) {
  options.instant_sleeps = true;
  Boot();
  Phone().TakeAway(GPIO);
  EXPECT_EQ(SwitchOff(),
            (Lines{"sleep 1.000", "channel closed", "open /dev/misc/omap730_gpio rw+cloexec -> ENOENT",
                   "shell /sbin/poweroff", "event power off", "event powered off"}));
}

}  // namespace
