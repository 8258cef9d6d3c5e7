// A phone that takes more of the PC than its limits ends, with everything in it.
#include <fmt/format.h>
#include <re2/re2.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <ostream>

#include "simulator/supervisor/phone_processes.h"
#include "simulator/supervisor/task_group.h"
#include "tests/phone/phone_test.h"
#include "tests/phone/processes.h"
#include "tests/phone/rights.h"

namespace {

constexpr uint64_t MIB = 1 << 20;

#define MEBIBYTES_IN_X "x=0123456789abcdef; while [ ${#x} -lt 10000000 ]; do x=$x$x; done; "

struct Taker {
  const char* name;
  const char* script;
  const char* sentence;  // the start of the phone's end
};

void PrintTo(const Taker& taker, std::ostream* out) {
  *out << taker.name;
}

const Taker TAKERS[] = {
    {"Bomb", "bomb() { bomb | bomb & bomb; }; bomb", "ended: the phone had "},
    {"Sleepers", "while :; do sleep 1000 & done", "ended: the phone had "},
    {"Memory", MEBIBYTES_IN_X "y=$x; while :; do x=$x$y; done", "ended: the phone's programs used "},
    {"Copies", MEBIBYTES_IN_X "for n in 1 2 3 4 5 6; do (x=$x$n; sleep 1000; :) & done",
     "ended: the phone's programs used "},
    {"Disk", "echo 0123456789abcdef > /a; n=0; while :; do cat /a /a > /b; cat /b /b > /a; done",
     "ended: the phone's files took "},
    {"Nameless", "exec 3> /a 4> /b; rm /a /b; while :; do echo 0123456789abcdef >&3; cat /bin/sh >&4; done",
     "ended: the phone's files took "},
    {"Deep", "while mkdir d && cd d; do :; done", "ended: the phone's directories were more than 64 deep"},
};

constexpr simulator::PhoneLimits SMALL = {.tasks = 40, .memory = 96 * MIB, .disk = 64 * MIB};

class LimitsTest : public PhoneTest, public testing::WithParamInterface<Taker> {};

}  // namespace

TEST_P(LimitsTest, EndThePhoneThatIsOverThem) {
  simulator::SimulatedPhone other(options);
  other.Boot();
  options.limits = SMALL;
  Boot();
  const std::string root = Phone().Root().Path();
  Phone().RunShell(GetParam().script);
  const auto end = Phone().WaitForEnd(std::chrono::minutes(2));
  ASSERT_TRUE(end);
  EXPECT_TRUE(end->Text().starts_with(GetParam().sentence)) << end->Text();
  EXPECT_TRUE(simulator::ProcessesIn(root).empty());
  HostLine others_host(other.HostPort());
  others_host.Send(Words({0x00, 0}));
  EXPECT_EQ(others_host.Receive(4), Words({1}));
  DiscardPhone();
  EXPECT_FALSE(std::filesystem::exists(root));
}

INSTANTIATE_TEST_SUITE_P(Takers, LimitsTest, testing::ValuesIn(TAKERS),
                         [](const auto& taker) { return std::string(taker.param.name); });

// Ten processes have the same 16 MiB in memory, and the same file without a name.
TEST_F(PhoneTest, CountsOnceWhatItsProgramsShare) {
  options.limits = SMALL;
  Boot();
  Phone().RunShell(
      MEBIBYTES_IN_X
      "while [ $((n += 1)) -lt 20 ]; do cat /bin/sh; done > /a; exec 3< /a 4< /a; rm /a;"
      "for n in 1 2 3 4 5 6 7 8 9 10; do (while :; do sleep 1; done) & done; sleep 4; echo passed");
  EXPECT_TRUE(Eventually([&] { return Phone().ConsoleText().find("passed") != std::string::npos; }));
  EXPECT_TRUE(Phone().IsRunning());
}

TEST_F(PhoneTest, HoldsOneWriteToTheLimitOfTheDisk) {
  options.limits = SMALL;
  Boot();
  std::ifstream file(fmt::format("/proc/{}/limits", Phone().ServerProcess()));
  const std::string text(std::istreambuf_iterator<char>(file), {});
  EXPECT_TRUE(RE2::PartialMatch(text, "Max file size +67108864 +67108864")) << text;
  EXPECT_TRUE(RE2::PartialMatch(text, "Max core file size +[01] +1 ")) << text;
}

namespace {

class ClosedDirectoryTest : public PhoneTest, public testing::WithParamInterface<const char*> {};

}  // namespace

// A program whose working directory is inside the closed one still writes there.
TEST_P(ClosedDirectoryTest, IsCountedForAnOrdinaryUserToo) {
  if (geteuid() != 0 || !UserNamespacesAreAllowed()) GTEST_SKIP() << "only root can give up rights";
  EXPECT_EQ(InChild([this] {
              if (!BecomeOrdinaryUser()) return 2;
              options.server.clear();
              options.limits = SMALL;
              Phone().Boot();
              Phone().RunShell(fmt::format(
                  "mkdir -p /d/a; cd /d/a; chmod {} /d; while :; do n=$n.; cat /bin/busybox > a$n; done",
                  GetParam()));
              const auto end = Phone().WaitForEnd(std::chrono::seconds(20));
              DiscardPhone();
              return end && end->Text().starts_with("ended: the phone's files took ") ? 0 : 1;
            }),
            0);
}

INSTANTIATE_TEST_SUITE_P(Modes, ClosedDirectoryTest, testing::Values("0", "111", "444"));

namespace {

struct Bomb {
  const char* name;
  bool (*take_rights)();
  simulator::TaskLimit held_by;
  const char* argument;
};

void PrintTo(const Bomb& bomb, std::ostream* out) {
  *out << bomb.name;
}

const Bomb BOMBS[] = {
    {"Roots", [] { return true; }, simulator::TaskLimit::ControlGroup, "together"},
    {"AnOrdinaryUsers", BecomeOrdinaryUser, simulator::TaskLimit::User, "apart"},
    {"APlainContainers", BecomeContainersRoot, simulator::TaskLimit::Counting, "together"},
};

bool ControlGroupsAreAllowed() {
  const std::string group = simulator::MakeTaskGroup(1);
  simulator::RemoveTaskGroup(group.c_str());
  return !group.empty();
}

class ForkBombTest : public PhoneTest, public testing::WithParamInterface<Bomb> {};

}  // namespace

TEST_P(ForkBombTest, EndsThePhoneAndStaysInside) {
  if (geteuid() != 0 || !UserNamespacesAreAllowed()) GTEST_SKIP() << "only root can give up rights";
  if (GetParam().held_by == simulator::TaskLimit::ControlGroup && !ControlGroupsAreAllowed()) {
    GTEST_SKIP() << "no control group can be made here";
  }
  // The build directory may be closed to other users.
  const std::string copy = testing::TempDir() + "fork-bomb-" + std::to_string(getpid());
  std::filesystem::copy_file(FORK_BOMB, copy, std::filesystem::copy_options::overwrite_existing);
  options.server = copy;
  options.server_arguments = {GetParam().argument};
  EXPECT_EQ(InChild([this] {
              if (!GetParam().take_rights()) return 2;
              Phone().Boot();
              const simulator::TaskLimit held_by = Phone().GetConfinement()->tasks;
              const auto end = Phone().WaitForEnd(std::chrono::minutes(2));
              if (!end || end->reason != simulator::PhoneEnd::Reason::OverLimit) return 3;
              if (!simulator::ProcessesIn(Phone().Root().Path()).empty()) return 4;
              return held_by == GetParam().held_by ? 0 : 5;
            }),
            0);
  std::filesystem::remove(copy);
}

INSTANTIATE_TEST_SUITE_P(Bombs, ForkBombTest, testing::ValuesIn(BOMBS),
                         [](const auto& bomb) { return std::string(bomb.param.name); });
