// The program phonesim: phones in the background by name, the commands that work them, and its exit statuses.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>

#include "tests/phone/host_line.h"
#include "tests/phone/processes.h"

namespace {

namespace fs = std::filesystem;

struct Outcome {
  int status;
  std::string output;  // standard output and error

  bool Says(const std::string& text) const {
    return output.find(text) != std::string::npos;
  }
};

class PhonesimTest : public testing::Test {
 protected:
  PhonesimTest()
      : name_("phonesim-test-" + std::to_string(getpid())), directory_(testing::TempDir() + name_) {
    fs::create_directories(directory_);
    const fs::path beside = fs::read_symlink("/proc/self/exe").parent_path();
    const char* server = getenv("PHONETESTD");
    program_ = beside / "phonesim";
    server_ = server != nullptr ? fs::path(server) : beside / "phonetestd";
  }
  ~PhonesimTest() override {
    Run("stop");
    fs::remove_all(directory_);
  }

  std::string Line(const std::string& words, const std::string& name) const {
    return program_.string() + " --server " + server_.string() + " --ends-with " + std::to_string(owner_) +
           " --name " + name + " " + words + " 2>&1";
  }
  Outcome Run(const std::string& words, const std::string& suffix = "",
              const std::string& before = "") const {
    FILE* pipe = popen((before + Line(words, name_ + suffix)).c_str(), "r");
    Outcome outcome = {0, {}};
    char bytes[4096];
    size_t size;
    while ((size = fread(bytes, 1, sizeof bytes, pipe)) > 0) outcome.output.append(bytes, size);
    outcome.status = WEXITSTATUS(pclose(pipe));
    return outcome;
  }
  // In the foreground, its output in a file.
  pid_t RunAside(const std::string& words) const {
    const std::string line = "exec " + Line(words, name_) + " > " + OutputFile();
    const pid_t process = fork();
    if (process == 0) execl("/bin/sh", "sh", "-c", line.c_str(), nullptr);
    return process;
  }
  // What stands after the label in this phone's line of the status.
  pid_t NumberAfter(const std::string& label) const {
    const std::string status = Run("status").output;
    return std::stoi(status.substr(status.find(label, status.find(name_ + ": ")) + label.size()));
  }
  std::string OutputFile() const {
    return directory_ + "/output";
  }
  static std::string Read(const std::string& path) {
    std::ifstream file(path);
    return {std::istreambuf_iterator<char>(file), {}};
  }
  static std::string PortIn(const std::string& text) {
    const size_t at = text.find("/dev/pts/");
    return at == std::string::npos ? "" : text.substr(at, text.find_first_of(",\n", at) - at);
  }

  pid_t owner_ = getpid();  // the phones end with it
  std::string name_;
  std::string directory_;
  fs::path program_;
  fs::path server_;
};

TEST_F(PhonesimTest, RunsPhonesInTheBackgroundByName) {
  const std::string link = directory_ + "/port";
  const Outcome started = Run("--most-tasks 77 --most-memory 333 --most-disk 222 --link " + link + " start");
  ASSERT_EQ(started.status, 0) << started.output;
  EXPECT_EQ(fs::read_symlink(link), PortIn(started.output));
  const Outcome again = Run("start");
  EXPECT_EQ(again.status, 1);
  EXPECT_TRUE(again.Says("runs already")) << again.output;
  ASSERT_EQ(Run("start", "-b").status, 0);

  const Outcome status = Run("status");
  EXPECT_TRUE(status.Says(name_ + ": running, host port " + PortIn(started.output))) << status.output;
  EXPECT_TRUE(status.Says(name_ + "-b: running")) << status.output;
  EXPECT_TRUE(status.Says("limited to 77 processes and threads, 333 MiB of memory, 222 MiB and"))
      << status.output;
  HostLine host(link);
  host.Send(Words({0x00, 0}));
  EXPECT_EQ(host.Receive(4), Words({1}));

  EXPECT_EQ(Run("stop").status, 0);
  EXPECT_FALSE(fs::is_symlink(link));
  EXPECT_FALSE(Run("status").Says(name_ + ": "));
  EXPECT_TRUE(Run("status").Says(name_ + "-b: "));
  EXPECT_EQ(Run("stop", "-b").status, 0);
  const Outcome none = Run("gpio");
  EXPECT_EQ(none.status, 1);
  EXPECT_TRUE(none.Says("No simulated phone named " + name_)) << none.output;
}

// Of a program that follows the journal and does not read it, little waits in the simulator.
TEST_F(PhonesimTest, LeavesOutWhatASlowFollowerOfTheJournalMisses) {
  ASSERT_EQ(Run("start").status, 0);
  FILE* follower = popen(Line("journal --follow", name_).c_str(), "r");
  const std::string script = directory_ + "/loud";
  std::ofstream(script) << "v=$(head -c 100000 /dev/zero | tr '\\0' x); i=0\n"
                           "while [ $i -lt 600 ]; do /bin/true $v; i=$((i + 1)); done\n"
                           "echo done > /proc/gpio/motor; exit\n";
  EXPECT_EQ(Run("shell", "", "cat " + script + " | ").status, 0);
  bool left_out = false;
  bool ended = false;
  char bytes[4096];
  while (!ended && fgets(bytes, sizeof bytes, follower) != nullptr) {
    const std::string_view line = bytes;
    left_out = left_out || line.find("entries came and went before they could be shown") != line.npos;
    ended = line.find("value /proc/gpio/motor \"done") != line.npos;
  }
  EXPECT_EQ(Run("stop").status, 0);
  pclose(follower);
  EXPECT_TRUE(left_out && ended);
}

TEST_F(PhonesimTest, WorksTheRunningPhone) {
  const Outcome started = Run("--no-waiting start");
  ASSERT_EQ(started.status, 0) << started.output;
  const std::string picture = directory_ + "/lcd.png";
  EXPECT_EQ(Run("screenshot " + picture).status, 0);
  EXPECT_EQ(Read(picture).substr(0, 8), "\x89PNG\r\n\x1a\n");
  EXPECT_EQ(Run("screenshot /nowhere/lcd.png").status, 7);
  EXPECT_TRUE(Run("gpio modem-state 0").Says("modem-state 0"));
  EXPECT_TRUE(Run("commands").Says("replug"));
  EXPECT_EQ(Run("preview " + picture).status, 0);
  EXPECT_TRUE(Run("camera").Says(", 0 exposed")) << "a preview is no frame of the phone's";
  EXPECT_TRUE(Run("key 0x174").Says("key 0x01740001"));
  EXPECT_TRUE(Run("flash OTP flip 16384").Says("OTP has no byte 16384"));
  const Outcome unknown = Run("sreenshot " + picture);
  EXPECT_EQ(unknown.status, 2);
  EXPECT_TRUE(unknown.Says("there is no command sreenshot; did you mean screenshot?")) << unknown.output;

  HostLine host(PortIn(started.output));
  host.Send(Words({0x3E, 0}));
  EXPECT_EQ(host.Receive(4), Words({static_cast<uint32_t>(-9984)}));
  EXPECT_EQ(Run("fault open /dev/misc/omap730_gpio error=EIO times=1").status, 0);
  host.Send(Words({0x3E, 0}));
  EXPECT_EQ(host.Receive(4), Words({static_cast<uint32_t>(-9989)}));
  EXPECT_TRUE(Run("journal").Says("open /dev/misc/omap730_gpio rw -> EIO"));
  EXPECT_TRUE(Run("shell < /dev/null").Says("phone:/# "));
  FILE* shell = popen((Line("shell", name_) + " > " + OutputFile()).c_str(), "w");
  fputs("cat /etc/passwd; exit\n", shell);
  pclose(shell);
  EXPECT_NE(Read(OutputFile()).find("root:x:0:0:root:/root:/bin/sh\r\n"), std::string::npos)
      << Read(OutputFile());

  // Following goes on until the phone is off.
  const std::string followed = directory_ + "/followed";
  const pid_t follower = fork();
  if (follower == 0) {
    execl("/bin/sh", "sh", "-c", ("exec " + Line("journal --follow", name_) + " > " + followed).c_str(),
          nullptr);
  }
  EXPECT_TRUE(Eventually([&] { return Read(followed).find("-> EIO") != std::string::npos; }));
  host.Send(Words({0x02, 0}));
  waitpid(follower, nullptr, 0);
  EXPECT_NE(Read(followed).find("shell /sbin/poweroff"), std::string::npos);
  EXPECT_NE(Read(followed).find("event powered off"), std::string::npos);
}

TEST_F(PhonesimTest, RunsAScriptUntilACommandFails) {
  ASSERT_EQ(Run("start").status, 0);
  struct Case {
    std::string script;
    int status;
    std::string output;
  };
  const Case cases[] = {
      {"# no command\n\n key \"power\" # \"\nwait 2e-1\nclock \"2006-01-15\" 08:30:00", 0,
       "key 0x00740001\n2006-01-15 08:30:00\n"},
      {"nonsense\nkey exit\n", 1,
       "The phone knows no command \"nonsense\".\nphonesim: standard input line 1 failed\n"},
      {"key exit\nwait\nkey exit", 1,
       "key 0x00AE0001\nphonesim: standard input line 2: wait takes a number of seconds\n"},
      {"wait -1", 1, "phonesim: standard input line 1: wait takes 0 to 3600 seconds\n"},
      {"wait 1s", 1, "phonesim: standard input line 1: wait takes 0 to 3600 seconds\n"},
  };
  const std::string file = directory_ + "/script";
  for (const Case& one : cases) {
    std::ofstream(file) << one.script;
    const auto start = std::chrono::steady_clock::now();
    const Outcome outcome = Run("script - < " + file);
    EXPECT_EQ(outcome.status, one.status) << one.script;
    EXPECT_EQ(outcome.output, one.output);
    if (one.status == 0) {
      EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(200));
    }
  }
  EXPECT_EQ(Run("script " + file).output, "phonesim: " + file + " line 1: wait takes 0 to 3600 seconds\n");
  EXPECT_EQ(Run("script " + file + "s").output, "phonesim: " + file + "s: cannot be read\n");
}

TEST_F(PhonesimTest, EndsInTheForegroundOnASignal) {
  const std::string journal = directory_ + "/journal.json";
  const std::string lcd = directory_ + "/lcd.png";
  for (const int number : {SIGINT, SIGTERM}) {
    const pid_t process = RunAside("--journal " + journal + " --lcd " + lcd);
    // The output names the port a little after the server's start. The start ends with a value.
    ASSERT_TRUE(Eventually([&] {
      return !PortIn(Read(OutputFile())).empty() && Read(journal).find("\"value\"") != std::string::npos;
    }));
    kill(process, number);
    int status = 0;
    waitpid(process, &status, 0);
    EXPECT_EQ(status, 0);
    EXPECT_NE(Read(OutputFile()).find("\nstopped\n"), std::string::npos);
    EXPECT_GT(fs::file_size(lcd), 100u);
    std::ifstream lines(journal);
    std::string last_kind;
    for (std::string line; std::getline(lines, line);) last_kind = nlohmann::json::parse(line)["kind"];
    EXPECT_EQ(last_kind, "event");
    fs::remove(journal);
  }
}

TEST_F(PhonesimTest, TellsWhatOutputIsLost) {
  const std::string full = ": No space left on device\n";
  const Outcome no_journal = Run("--journal /dev/full start");
  EXPECT_EQ(no_journal.status, 7);
  EXPECT_EQ(no_journal.output, "phonesim: cannot write the journal /dev/full" + full);
  EXPECT_EQ(Run("--journal /nowhere/journal -- -c 7").status, 7);
  ASSERT_EQ(Run("--lcd /dev/full --no-waiting start").status, 0) << "the one before has ended";

  const std::string script = directory_ + "/play";
  std::ofstream(script) << "head -c 20000 /dev/zero > /dev/sound/dsp; exit\n";
  EXPECT_EQ(Run("shell > /dev/null", "", "cat " + script + " | ").status, 0);
  const std::string elsewhere = "cd " + directory_ + "; ";
  EXPECT_EQ(Run("sound save tone.wav", "", elsewhere).status, 0);
  EXPECT_EQ(Read(directory_ + "/tone.wav").substr(0, 4), "RIFF");
  EXPECT_EQ(Run("screenshot lcd.png", "", elsewhere).status, 0);
  const Outcome picture = Run("camera picture lcd.png", "", elsewhere);
  EXPECT_EQ(picture.status, 0) << picture.output;
  EXPECT_EQ(Run("sound save /dev/full 99").status, 1) << "there is no such recording";

  for (const char* words : {"sound save /dev/full", "screenshot /dev/full", "file /etc/passwd /dev/full"}) {
    const Outcome lost = Run(words);
    EXPECT_EQ(lost.status, 7) << words;
    EXPECT_EQ(lost.output, "phonesim: cannot write /dev/full" + full);
  }
  for (const char* words : {"state", "journal", "lcd", "shell", "status", "commands"}) {
    const Outcome lost = Run(words + std::string(" 2>&1 > /dev/full < /dev/null #"));
    EXPECT_EQ(lost.status, 7) << words;
    EXPECT_EQ(lost.output, "phonesim: cannot write standard output" + full) << words;
  }
  const Outcome stopped = Run("stop");
  EXPECT_EQ(stopped.status, 7);
  EXPECT_EQ(stopped.output, "phonesim: cannot write /dev/full" + full);
}

TEST_F(PhonesimTest, LeavesWhatIsSomeoneElsesAtTheLink) {
  const std::string link = directory_ + "/port";
  std::ofstream(link) << "someone's file";
  const Outcome refused = Run("--link " + link + " start");
  EXPECT_EQ(refused.status, 1);
  EXPECT_TRUE(refused.Says("exists")) << refused.output;
  EXPECT_EQ(Read(link), "someone's file");

  fs::remove(link);
  fs::create_symlink("/dev/pts/999999", link);  // of a phone that ended without taking it along
  ASSERT_EQ(Run("--link " + link + " start").status, 0);
  fs::remove(link);
  std::ofstream(link) << "put there meanwhile";
  EXPECT_EQ(Run("stop").status, 0);
  EXPECT_EQ(Read(link), "put there meanwhile");
}

TEST_F(PhonesimTest, EndsWithTheProcessThatItIsTiedTo) {
  const pid_t owner = fork();
  if (owner == 0) {
    pause();
    _exit(0);
  }
  owner_ = owner;
  ASSERT_EQ(Run("start").status, 0);
  owner_ = getpid();
  EXPECT_EQ(Run("restart").status, 0);
  EXPECT_TRUE(Run("status").Says(name_ + ": running"));
  kill(owner, SIGKILL);
  waitpid(owner, nullptr, 0);
  EXPECT_TRUE(Eventually([&] { return !Run("status").Says(name_ + ": "); }));
  owner_ = owner;
  const Outcome late = Run("start");
  EXPECT_EQ(late.status, 1);
  EXPECT_TRUE(late.Says("There is no process")) << late.output;
}

TEST_F(PhonesimTest, DrawsAndPlugsTheCable) {
  const Outcome started = Run("--no-waiting start");
  HostLine host(PortIn(started.output));
  const auto answers = [&] {
    host.Send(Words({0x00, 0}));
    return host.Receive(4, 300ms) == Words({1});
  };
  EXPECT_TRUE(answers());
  EXPECT_EQ(Run("unplug").status, 0);
  EXPECT_TRUE(Eventually([&] { return Run("journal").Says("open /dev/usb/tts/0 rw+cloexec -> ENODEV"); }));
  EXPECT_FALSE(answers());
  EXPECT_EQ(Run("plug").status, 0);
  EXPECT_TRUE(Eventually(answers));
}

TEST_F(PhonesimTest, SaysThatTheServerDoesNotServe) {
  server_ = "/bin/true";
  const Outcome started = Run("start");
  EXPECT_EQ(started.status, 1);
  EXPECT_TRUE(started.Says("does not serve")) << started.output;
  EXPECT_FALSE(Run("status").Says(name_ + ": "));
}

// A simulator with few descriptors serves or says why it does not; it neither hangs nor spins.
TEST_F(PhonesimTest, StartsOrSaysWhyWithFewDescriptors) {
#ifdef __SANITIZE_ADDRESS__
  GTEST_SKIP() << "without a free descriptor the sanitizer takes every object for a wrong one";
#endif
  bool served = false, refused = false;
  for (const int limit : {16, 24, 32, 36, 40, 44, 48, 64}) {
    const Outcome started = Run("start", "", "ulimit -n " + std::to_string(limit) + "; timeout 20 ");
    SCOPED_TRACE(std::to_string(limit) + ": " + started.output);
    if (started.status == 0) {
      HostLine host(PortIn(started.output));
      host.Send(Words({0x00, 0}));
      EXPECT_EQ(host.Receive(4), Words({1}));
      EXPECT_EQ(Run("stop").status, 0);
      served = true;
    } else {
      EXPECT_EQ(started.status, 1);
      EXPECT_TRUE(started.Says("phonesim: "));
      refused = true;
    }
  }
  EXPECT_TRUE(served && refused);
}

TEST_F(PhonesimTest, GivesUpOnAPhoneThatHangs) {
  ASSERT_EQ(Run("start").status, 0);
  const pid_t simulator = NumberAfter("simulator process ");
  kill(simulator, SIGSTOP);
  const auto start = std::chrono::steady_clock::now();
  const Outcome all = Run("status & " + Line("key 0x74", name_) + " & " + Line("stop", name_) + "; wait");
  EXPECT_LT(std::chrono::steady_clock::now() - start, 8s);
  kill(simulator, SIGCONT);
  size_t said = 0;
  for (size_t at = 0; (at = all.output.find(name_ + ": does not answer", at)) != std::string::npos; ++at) {
    ++said;
  }
  EXPECT_EQ(said, 3u) << all.output;
}

TEST_F(PhonesimTest, TellsHowTheServerEnded) {
  const Outcome one_shot = Run("-- -c 7");
  EXPECT_EQ(one_shot.status, 0);
  EXPECT_TRUE(one_shot.Says("server ended with status 0")) << one_shot.output;

  const Outcome over = Run("--most-disk 1");
  EXPECT_EQ(over.status, 3);
  EXPECT_TRUE(over.Says("1 MiB are their limit")) << over.output;

  const pid_t process = RunAside("");
  ASSERT_TRUE(Eventually([&] { return Run("status").Says(name_ + ": running"); }));
  kill(NumberAfter("server process "), SIGKILL);
  int ended = 0;
  waitpid(process, &ended, 0);
  EXPECT_EQ(WEXITSTATUS(ended), 3);
  EXPECT_NE(Read(OutputFile()).find("server killed by signal 9"), std::string::npos);

  for (const char* server : {"/nowhere/phonetestd", "/etc/passwd"}) {
    server_ = server;
    const Outcome none = Run("");
    EXPECT_EQ(none.status, 1);
    EXPECT_TRUE(none.Says("phonesim: ")) << none.output;
    EXPECT_TRUE(none.Says(server)) << none.output;
  }
  EXPECT_EQ(Run("--unheard-of").status, 2);
}

}  // namespace
