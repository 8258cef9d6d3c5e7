// A hostile program in the phone reaches nothing of the PC, whoever runs the simulator. What it tries is in
// programs/hostile_program.cpp.
#include <fcntl.h>
#include <netinet/in.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/shm.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <fstream>

#include "posix/file_descriptor.h"
#include "simulator/phone/root_directory.h"
#include "simulator/supervisor/landlock.h"
#include "tests/phone/phone_test.h"
#include "tests/phone/processes.h"
#include "tests/phone/rights.h"

namespace {

// What lies outside for the hostile program to reach.
class Outside {
 public:
  Outside() {
    std::filesystem::create_directory(directory_);
    std::ofstream(Canary()) << "alive";
    victim_ = fork();
    if (victim_ == 0) {
      prctl(PR_SET_PDEATHSIG, SIGKILL);
      while (true) pause();
    }
    listener_.Reset(socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
    listen(listener_.Get(), 5);
    sockaddr_in address = {};
    socklen_t size = sizeof address;
    getsockname(listener_.Get(), reinterpret_cast<sockaddr*>(&address), &size);
    port_ = ntohs(address.sin_port);
    memory_ = shmget(IPC_PRIVATE, 4096, 0600);
  }

  ~Outside() {
    kill(victim_, SIGKILL);
    waitpid(victim_, nullptr, 0);
    shmctl(memory_, IPC_RMID, nullptr);
    std::filesystem::remove_all(directory_);
  }

  int Port() const {
    return port_;
  }
  std::string Canary() const {
    return directory_ + "/canary";
  }

  std::vector<std::string> Arguments() const {
    return {std::to_string(victim_), Canary(), std::to_string(port_), "canary-" + std::to_string(victim_),
            std::to_string(memory_)};
  }

  // What has changed; empty when nothing has.
  std::string Damage() const {
    std::string text;
    std::getline(std::ifstream(Canary()), text);
    const auto files = std::distance(std::filesystem::directory_iterator(directory_), {});
    if (text != "alive" || files != 1) return "the canary";
    std::ifstream status("/proc/" + std::to_string(victim_) + "/stat");
    std::string number, name, state;
    status >> number >> name >> state;
    if (state != "S" && state != "R") return "the victim is in state " + state;
    if (accept(listener_.Get(), nullptr, nullptr) >= 0) return "the listener";
    shmid_ds memory;
    if (shmctl(memory_, IPC_STAT, &memory) != 0 || memory.shm_atime != 0) return "the shared memory";
    return {};
  }

 private:
  std::string directory_ = testing::TempDir() + "outside-" + std::to_string(getpid());
  pid_t victim_ = 0;
  posix::FileDescriptor listener_;
  int port_ = 0;
  int memory_ = -1;
};

long LandlockVersion() {
  return syscall(SYS_landlock_create_ruleset, nullptr, 0, 1 /* asks for the version */);
}

// Returns the scopes that Landlock holds the calling process to, judged by what it cannot do any more.
uint32_t ScopesByTrial(int outside_directory, int port) {
  uint32_t scopes = 0;
  if (openat(outside_directory, "canary", O_RDONLY) < 0 && errno == EACCES)
    scopes |= simulator::LANDLOCK_FILES;
  sockaddr_in address = {AF_INET, htons(static_cast<uint16_t>(port)), {htonl(INADDR_LOOPBACK)}, {}};
  const posix::FileDescriptor client(socket(AF_INET, SOCK_STREAM, 0));
  const bool connected = connect(client.Get(), reinterpret_cast<sockaddr*>(&address), sizeof address) == 0;
  if (!connected && errno == EACCES) scopes |= simulator::LANDLOCK_TCP;
  if (kill(getppid(), 0) != 0 && errno == EPERM) scopes |= simulator::LANDLOCK_SIGNALS;
  return scopes;
}

}  // namespace

// On top of everything else, so alone here.
TEST(Landlock, HoldsWhatItSays) {
  if (geteuid() != 0 || LandlockVersion() < 2) GTEST_SKIP() << "no root, or a kernel without Landlock";
  const Outside outside;
  const std::string root = testing::TempDir() + "landlock-" + std::to_string(getpid());
  std::filesystem::create_directories(root + "/a");
  std::filesystem::create_directory(root + "/b");
  std::ofstream(root + "/a/file") << "text";
  EXPECT_EQ(InChild([&] {
              const int directory =
                  open(std::filesystem::path(outside.Canary()).parent_path().c_str(), O_PATH | O_DIRECTORY);
              if (chroot(root.c_str()) != 0 || chdir("/") != 0) return 2;
              constexpr uint32_t TRIED =
                  simulator::LANDLOCK_FILES | simulator::LANDLOCK_TCP | simulator::LANDLOCK_SIGNALS;
              if (ScopesByTrial(directory, outside.Port()) != 0) return 3;
              const uint32_t scopes = simulator::ConfineByLandlock() & TRIED;
              if (scopes == 0 || ScopesByTrial(directory, outside.Port()) != scopes) return 4;
              return rename("/a/file", "/b/file") == 0 && truncate("/b/file", 1) == 0 ? 0 : 5;
            }),
            0);
  std::filesystem::remove_all(root);
}

class ContainmentTest : public PhoneTest {
 protected:
  void SetUp() override {
    if (geteuid() != 0) GTEST_SKIP() << "only root can give up rights";
    // The one for the phone's processor is built beside the phone's own executable.
    const std::filesystem::path program =
        IsEmulated() ? options.server.parent_path() / "hostile_program" : HOSTILE_PROGRAM;
    if (!std::filesystem::exists(program)) GTEST_SKIP() << program << " is not built";
    std::filesystem::copy_file(program, copy_, std::filesystem::copy_options::overwrite_existing);
  }
  void TearDown() override {
    std::filesystem::remove(copy_);
  }

  // In a child, so a test can give up rights before it.
  int TryToGetOut() {
    const Outside outside;
    options.server = copy_;
    options.server_arguments = outside.Arguments();
    Phone().Boot();
    const bool landlock = Phone().GetConfinement()->landlock != 0;
    const auto end = Phone().WaitForEnd(std::chrono::minutes(5));
    const std::string said = Phone().ConsoleText();
    DiscardPhone();
    const std::string damage = outside.Damage();
    printf("%s%s%s\n", said.c_str(), damage.empty() ? "" : "damaged: ", damage.c_str());
    fflush(stdout);
    if (!end || end->reason != simulator::PhoneEnd::Reason::ServerExited) return 3;
    if (landlock != (LandlockVersion() >= 2)) return 4;
    return end->status != 0 || !damage.empty() ? 1 : 0;
  }

 private:
  // The build directory may be closed to other users.
  std::string copy_ = testing::TempDir() + "hostile-" + std::to_string(getpid());
};

TEST_F(ContainmentTest, NothingGetsOutOfRootsPhone) {
  EXPECT_EQ(InChild([this] { return TryToGetOut(); }), 0);
}

TEST_F(ContainmentTest, NothingGetsOutOfAnOrdinaryUsersPhone) {
  if (!UserNamespacesAreAllowed()) GTEST_SKIP() << "an ordinary user gets no user namespace here";
  EXPECT_EQ(InChild([this] { return BecomeOrdinaryUser() ? TryToGetOut() : 2; }), 0);
}

TEST_F(ContainmentTest, NothingGetsOutOfAPlainContainersPhone) {
  EXPECT_EQ(InChild([this] { return BecomeContainersRoot() ? TryToGetOut() : 2; }), 0);
}

// The simulator's own accesses: the phone's programs may have put a link or a pipe at any path.
TEST(SimulatorsOwnFiles, AreFoundInsideTheRootOnly) {
  const std::string outside = testing::TempDir() + "own-files-" + std::to_string(getpid());
  std::filesystem::create_directory(outside);
  const std::string canary = outside + "/canary";
  std::ofstream(canary) << "alive";
  const auto permissions = std::filesystem::status(canary).permissions();
  {
    simulator::RootDirectory root{{}};
    for (const char* path : {"/file", "/mode", "/copy", "/moved"}) root.PutLink(path, canary);
    for (const char* path : {"/folder", "/list"}) root.PutLink(path, outside);
    root.PutLink("/up", std::string(200, '/') + "../../../../../../../.." + canary);
    for (const char* path : {"/pipe", "/other-pipe"}) root.PutNamedPipe(path);

    for (const char* path : {"/file", "/folder/new", "/up", "/pipe"}) {
      root.PutFile(path, "the phone's", 0600);
      EXPECT_EQ(root.ReadFile(path), "the phone's") << path;
    }
    EXPECT_THROW(root.SetMode("/mode", 0777), std::system_error);
    EXPECT_THROW(root.ReadFile("/mode"), std::runtime_error);
    EXPECT_THROW(root.ReadFile("/other-pipe"), std::runtime_error) << "does not wait for a writer";
    EXPECT_THROW(root.ListDirectory("/list"), std::system_error);
    EXPECT_FALSE(root.Exists("/list/canary"));
    root.Remove("/list/canary");
    root.CopyIn(canary, "/copy");
    root.PutFile("/copy", "the phone's");
    root.Move("/moved", "/list/moved");
    root.PutHardLink("/list/linked", "/file");
  }
  std::string text;
  std::getline(std::ifstream(canary), text);
  EXPECT_EQ(text, "alive");
  EXPECT_EQ(std::filesystem::status(canary).permissions(), permissions);
  EXPECT_EQ(std::distance(std::filesystem::directory_iterator(outside), {}), 1);
  std::filesystem::remove_all(outside);
}
