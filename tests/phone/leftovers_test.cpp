// A simulated phone leaves nothing on the PC, however it ends.
#include <signal.h>
#include <sys/wait.h>

#include <filesystem>
#include <fstream>

#include "simulator/supervisor/dead_phones.h"
#include "simulator/supervisor/phone_processes.h"
#include "tests/phone/phone_test.h"
#include "tests/phone/processes.h"

namespace fs = std::filesystem;
using simulator::PhoneEnd;
using simulator::ProcessesIn;

class LeftoversTest : public PhoneTest {
 protected:
  // Programs of the phone that would run on: one by itself, one that has left its parent and its session.
  void StartLastingPrograms() {
    Phone().RunShell("sleep 1000 & sleep 1000 & echo lasting; wait");
    Phone().RunShell("(sleep 1000 >/dev/null 2>&1 &); echo left");
    ASSERT_TRUE(Appears(LineIs("console lasting")));
    ASSERT_TRUE(Appears(LineIs("console left")));
    ASSERT_TRUE(Eventually([this] { return ProcessesIn(Phone().Root().Path()).size() >= 5; }))
        << testing::PrintToString(LinesSince());
  }

  pid_t Guardian() {
    std::ifstream status("/proc/" + std::to_string(Phone().ServerProcess()) + "/stat");
    std::string ignored;
    pid_t guardian = 0;
    status >> ignored >> ignored >> ignored >> guardian;
    return guardian;
  }

  static bool IsGone(const std::string& root) {
    return !fs::exists(root) && ProcessesIn(root).empty();
  }
};

TEST_F(LeftoversTest, NoneAfterTheNormalEnd) {
  Boot();
  const std::string root = Phone().Root().Path();
  StartLastingPrograms();
  // A directory without rights for its owner is removed as well.
  Phone().RunShell("mkdir -p /tmp/a/b; chmod 0 /tmp/a/b /tmp/a; echo closed");
  ASSERT_TRUE(Appears(LineIs("console closed")));
  DiscardPhone();
  EXPECT_TRUE(IsGone(root));
}

TEST_F(LeftoversTest, NoneAfterTheSimulatorIsKilled) {
  const std::string link = testing::TempDir() + "host-port-" + std::to_string(getpid());
  options.host_port_link = link;
  const WaitingChild simulator = StartChild([this] {
    Boot();
    StartLastingPrograms();
    return Phone().Root().Path();
  });
  ASSERT_TRUE(fs::is_symlink(link));
  ASSERT_GE(ProcessesIn(simulator.said).size(), 5u);
  kill(simulator.process, SIGKILL);
  waitpid(simulator.process, nullptr, 0);
  EXPECT_TRUE(Eventually([&] { return IsGone(simulator.said); })) << simulator.said;
  EXPECT_TRUE(Eventually([&] { return !fs::is_symlink(link); }));
}

TEST_F(LeftoversTest, NoneAfterTheGuardianIsKilled) {
  Boot();
  const std::string root = Phone().Root().Path();
  StartLastingPrograms();
  const pid_t guardian = Guardian();
  ASSERT_GT(guardian, 1);
  kill(guardian, SIGKILL);
  EXPECT_TRUE(Phone().WaitForEnd(10s).has_value());
  DiscardPhone();
  EXPECT_TRUE(IsGone(root));
}

// If the simulator and its guardian are killed together, the next start removes what they left.
TEST_F(LeftoversTest, NoneAfterTheNextStartWhenSimulatorAndGuardianWereKilled) {
  const WaitingChild simulator = StartChild([this] {
    Boot();
    StartLastingPrograms();
    return Phone().Root().Path() + " " + std::to_string(Guardian());
  });
  const std::string root = simulator.said.substr(0, simulator.said.find(' '));
  const pid_t guardian = std::stoi(simulator.said.substr(root.size()));
  simulator::RemoveDeadPhones();
  EXPECT_GE(ProcessesIn(root).size(), 5u) << "they live";
  for (const pid_t process : {guardian, simulator.process}) kill(process, SIGSTOP);
  for (const pid_t process : {guardian, simulator.process}) kill(process, SIGKILL);
  waitpid(simulator.process, nullptr, 0);
  // The locks go a moment after that.
  EXPECT_TRUE(Eventually([&] {
    simulator::RemoveDeadPhones();
    return IsGone(root);
  })) << root;
}

// Directories of the same kind that are no dead phone's stay, and so does what a link in one leads to.
TEST_F(LeftoversTest, OthersStayWhenDeadPhonesAreRemoved) {
  const fs::path place = simulator::TemporaryDirectory();
  const std::string number = std::to_string(getpid());
  const fs::path dead = place / ("phonesim-root-" + number), other = place / ("phonesim-others-" + number);
  fs::create_directory(other);
  std::ofstream(other / "file") << "kept";
  fs::create_directory(dead);
  fs::create_directory_symlink(other, dead / "link");
  fs::create_directory_symlink(other, place / ("phonesim-root-link-" + number));
  Boot();
  simulator::RemoveDeadPhones();
  EXPECT_FALSE(fs::exists(dead));
  EXPECT_TRUE(fs::exists(other / "file"));
  EXPECT_TRUE(StillAnswers());
  fs::remove_all(other);
  fs::remove(place / ("phonesim-root-link-" + number));
}

TEST_F(LeftoversTest, ADeadServerEndsThePhoneAndItsFilesStayToBeLookedAt) {
  Boot();
  StartLastingPrograms();
  kill(Phone().ServerProcess(), SIGKILL);
  const auto end = Phone().WaitForEnd(10s);
  ASSERT_TRUE(end.has_value());
  EXPECT_EQ(end->reason, PhoneEnd::Reason::ServerKilled);
  EXPECT_EQ(end->status, SIGKILL);
  EXPECT_TRUE(ProcessesIn(Phone().Root().Path()).empty());
  EXPECT_TRUE(Phone().Root().Exists("/usr/sbin/phonetestd"));
}
