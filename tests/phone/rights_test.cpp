// The simulated phone works for root, for an ordinary user, and for root with the rights of a plain
// container.
#include <unistd.h>

#include <filesystem>

#include "tests/phone/phone_test.h"
#include "tests/phone/processes.h"
#include "tests/phone/rights.h"

class RightsTest : public PhoneTest {
 protected:
  void SetUp() override {
    if (geteuid() != 0) GTEST_SKIP() << "only root can give up rights";
  }

  // Boots and lets the server and its shell write to a device and a file.
  int TryPhone() {
    Boot();
    const bool works = StillAnswers() && AskStatus(0x2B, Words({1, 0})) == SUCCESS &&
                       Appears(LineIs("value /proc/gpio/motor \"1\\n\"")) &&
                       AskStatus(0x45, Words({1})) == SUCCESS &&
                       !Phone().Root().ReadFile("/usr/share/app/calibration.dat").empty();
    DiscardPhone();
    return works && !HasFailure() ? 0 : 1;
  }
};

TEST_F(RightsTest, AnOrdinaryUsersPhoneWorks) {
  if (!UserNamespacesAreAllowed()) GTEST_SKIP() << "an ordinary user gets no user namespace here";
  // The build directory may be closed to other users.
  const std::string server = testing::TempDir() + "phonetestd-" + std::to_string(getpid());
  std::filesystem::copy_file(options.server, server, std::filesystem::copy_options::overwrite_existing);
  options.server = server;
  EXPECT_EQ(InChild([this] { return BecomeOrdinaryUser() ? TryPhone() : 2; }), 0);
  std::filesystem::remove(server);
}

TEST_F(RightsTest, ThePhoneOfRootInAPlainContainerWorks) {
  EXPECT_EQ(InChild([this] {
              if (!BecomeContainersRoot()) return 2;
              return TryPhone();
            }),
            0);
}

TEST_F(RightsTest, WithoutChrootAndNamespacesOneSentenceSaysSo) {
  EXPECT_EQ(
      InChild([this] {
        if (!KeepCapabilities(0) || !RefuseMountsAndNamespaces()) return 2;
        try {
          Phone().Boot();
        } catch (const simulator::CannotSimulate& refusal) {
          return std::string(refusal.what()).starts_with("A simulated phone needs chroot or a user namespace")
                     ? 0
                     : 3;
        }
        return 4;
      }),
      0);
}
