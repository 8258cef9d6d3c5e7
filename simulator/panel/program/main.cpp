// phonesim-panel: the page of the phones that run. `phonesim panel` and `phonesim start --panel` become this
// program; it is one of its own because the page's libraries would double the start of each phonesim command.
#include <fmt/format.h>
#include <signal.h>

#include <CLI/CLI.hpp>
#include <cstdio>
#include <exception>
#include <string>

#include "posix/background.h"
#include "posix/whole_output.h"
#include "simulator/panel/panel.h"

namespace {

constexpr int CANNOT_SHOW = 1;

// The page takes the ending signals from a descriptor.
void BlockSignals() {
  sigset_t ending;
  sigemptyset(&ending);
  for (int number : {SIGINT, SIGTERM, SIGHUP}) sigaddset(&ending, number);
  sigprocmask(SIG_BLOCK, &ending, nullptr);
  signal(SIGPIPE, SIG_IGN);
}

int ShowPanel(const simulator::PanelOptions& options, const std::string& phone) {
  simulator::Panel panel(options);
  posix::Print("panel: {}\n", panel.Address(phone));
  posix::FinishOutput();
  panel.Run();
  return 0;
}

int ShowPanelInBackground(simulator::PanelOptions options, const std::string& phone) {
  options.ends_with_phones = true;
  return posix::RunInBackground("phonesim", [&](const std::function<void(const std::string&)>& ready) {
    simulator::Panel panel(options);
    ready(fmt::format("panel: {}\n", panel.Address(phone)));
    panel.Run();
  });
}

int RunProgram(int argc, char** argv) {
  simulator::PanelOptions options;
  std::string phone;
  bool in_background = false;
  CLI::App app("The page of the simulated phones that run. Start it by `phonesim panel`.");
  app.add_option("--name", phone, "the phone whose page the address is (default: the page of all)");
  app.add_option("--panel-port", options.port, "the page's port");
  app.add_option("--listen", options.address, "the address to listen on");
  app.add_option("--public-name", options.public_name, "the host name of a proxy with TLS in front");
  app.add_option("--ends-with", options.ends_with, "the page ends with this process of the PC");
  app.add_flag("--background", in_background, "goes on without the terminal until no phone is left");
  CLI11_PARSE(app, argc, argv);
  BlockSignals();
  return in_background ? ShowPanelInBackground(options, phone) : ShowPanel(options, phone);
}

}  // namespace

int main(int argc, char** argv) {
  posix::HoldStandardDescriptors();
  int status = CANNOT_SHOW;
  try {
    status = RunProgram(argc, argv);
  } catch (const std::exception& failure) {
    fmt::print(stderr, "phonesim: {}\n", failure.what());
  }
  posix::FinishOutput();
  return posix::IsOutputLost() ? posix::OUTPUT_LOST_STATUS : status;
}
