// Names that are looked up: plans on the command line, and what bash completes.
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>

#include "tests/station/scripted_phone.h"

namespace {

namespace fs = std::filesystem;

// An installation: the program, with a plan in its share folder.
struct Installation {
  const fs::path root = TemporaryFolder() + "/installed";
  const fs::path here = TemporaryFolder() + "/here";  // the current folder
  const std::string program = root / "bin/phonetest";

  Installation() {
    fs::create_directories(root / "bin");
    fs::create_directories(root / "share/phonetest/plans");
    fs::create_directories(here / "phonetest");
    fs::copy_file(PHONETEST_PROGRAM, program);
    TemporaryFile("installed/share/phonetest/plans/factory.json", PING_PLAN);
  }
  ~Installation() {
    fs::remove_all(root);
    fs::remove_all(here);
  }
  ToolResult Run(std::vector<std::string> words) const {
    words.insert(words.begin(), {"env", "-C", here, "XDG_CONFIG_HOME=" + here.string()});
    return RunProgram(words);
  }
};

TEST(Plans, AreFoundInTheCurrentFolderAndThenAmongTheInstalledOnes) {
  const Installation installation;
  const std::string ping = "0000000000000000";
  ScriptedPhone phone({{ping, "01000000"}, {ping, "01000000"}, {ping, "00000000"}});
  const auto run = [&](const std::string& plan) {
    return installation.Run({installation.program, "--port", phone.Port(), "run", plan});
  };
  EXPECT_EQ(run("factory").status, 0);
  EXPECT_EQ(run("factory.json").status, 0);
  TemporaryFile("here/factory.json", R"({"name": "Mine", "steps": [{"command": "ping"}]})");
  EXPECT_EQ(run("factory").output.find("Mine on "), 0u);
  const ToolResult none = run("final");
  EXPECT_EQ(none.status, 4);
  const std::string plans = (installation.root / "share/phonetest/plans/").string();
  EXPECT_EQ(none.errors, "phonetest: there is no plan \"final\"; looked for final, final.json, " + plans +
                             "final, " + plans + "final.json\n");
  EXPECT_EQ(run("./factory").status, 4);
  EXPECT_EQ(phone.Difference(), "");
}

// What bash offers for the last word.
std::string Complete(const Installation& installation, const std::string& program, const std::string& words) {
  const std::string name = fs::path(program).filename();
  const std::string line = "source <(" + program + " completion); COMP_WORDS=(" + program + " " + words +
                           "); COMP_CWORD=$((${#COMP_WORDS[@]} - 1)); _" + name +
                           "; printf '%s ' \"${COMPREPLY[@]}\"";
  const ToolResult result = installation.Run({"bash", "-c", line});
  EXPECT_EQ(result.errors, "");
  return result.output;
}

TEST(Completion, OffersWhatFits) {
  const Installation installation;
  TemporaryFile("here/phonetest/configuration.json",
                R"({"ports": {"camera": "/dev/slot", "other": "tcp:a:1"}})");
  TemporaryFile("here/fa $(touch broken) .json", PING_PLAN);
  const auto tool = [&](const std::string& words) {
    return Complete(installation, installation.program, words);
  };
  EXPECT_EQ(tool("came"), "camera ");
  EXPECT_EQ(tool("--port /dev/ttyUSB0 camera cap"), "capture ");
  EXPECT_EQ(tool("camera capture --rot"), "--rotate ");
  EXPECT_EQ(tool("motor on --js"), "--json ");
  EXPECT_EQ(tool("run fa"), "fa\\ \\$\\(touch\\ broken\\)\\ .json factory ");
  EXPECT_FALSE(fs::exists(installation.here / "broken"));
  EXPECT_EQ(tool("run factory --rep"), "--report ");
  EXPECT_EQ(tool("run factory --report fa"), " ");  // bash's file names
  // A slot's name is no command, before or after "=".
  EXPECT_EQ(tool("ping --port cam"), "camera ");
  EXPECT_EQ(tool("ping --port = cam"), "camera ");
  EXPECT_EQ(tool("--port camera mot"), "motor ");
}

TEST(Completion, KnowsThePhonesThatRun) {
  const Installation installation;
  fs::create_symlink(PHONESIM_PROGRAM, installation.root / "bin/phonesim");
  const std::string name = "test-" + std::to_string(getpid()) + "-completed";
  const auto phonesim = [&](const std::string& words) {
    return Complete(installation, PHONESIM_PROGRAM, words);
  };
  // No phone runs for its commands.
  const ToolResult commands = RunProgram({PHONESIM_PROGRAM, "commands"});
  EXPECT_NE(commands.output.find("screenshot FILE\n"), std::string::npos)
      << commands.output << commands.errors;
  EXPECT_EQ(phonesim("screen"), "screenshot ");
  const ToolResult started =
      RunProgram({PHONESIM_PROGRAM, "--name", name, "--ends-with", std::to_string(getpid()), "start"});
  const std::size_t at = started.output.find("/dev/pts/");
  const std::string port = started.output.substr(at, started.output.find('\n', at) - at);
  EXPECT_EQ(phonesim("--name test-" + std::to_string(getpid())), name + " ");
  EXPECT_EQ(phonesim("--port /"), port + " ");
  EXPECT_NE(Complete(installation, installation.program, "--port /dev/pts").find(port + " "),
            std::string::npos);
  EXPECT_EQ(phonesim("journal --fol"), "--follow ");
  RunProgram({PHONESIM_PROGRAM, "--name", name, "stop"});
}

}  // namespace
