// A simulated phone leaves nothing on the PC, however it ends.
#include <signal.h>
#include <sys/wait.h>

#include <filesystem>
#include <fstream>

#include "simulator/supervisor/phone_processes.h"
#include "tests/phone/phone_test.h"
#include "tests/phone/processes.h"

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

  static bool IsGone(const std::string& root) {
    return !std::filesystem::exists(root) && ProcessesIn(root).empty();
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
  ASSERT_TRUE(std::filesystem::is_symlink(link));
  ASSERT_GE(ProcessesIn(simulator.said).size(), 5u);
  kill(simulator.process, SIGKILL);
  waitpid(simulator.process, nullptr, 0);
  EXPECT_TRUE(Eventually([&] { return IsGone(simulator.said); })) << simulator.said;
  EXPECT_TRUE(Eventually([&] { return !std::filesystem::is_symlink(link); }));
}

TEST_F(LeftoversTest, NoneAfterTheGuardianIsKilled) {
  Boot();
  const std::string root = Phone().Root().Path();
  StartLastingPrograms();
  std::ifstream status("/proc/" + std::to_string(Phone().ServerProcess()) + "/stat");
  std::string ignored;
  pid_t guardian = 0;
  status >> ignored >> ignored >> ignored >> guardian;
  ASSERT_GT(guardian, 1);
  kill(guardian, SIGKILL);
  EXPECT_TRUE(Phone().WaitForEnd(10s).has_value());
  DiscardPhone();
  EXPECT_TRUE(IsGone(root));
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
