#include "simulator/models/launcher.h"

#include <fmt/format.h>
#include <sys/stat.h>

#include <cerrno>
#include <stdexcept>
#include <system_error>

#include "simulator/phone/root_directory.h"

namespace simulator {
namespace {

constexpr char PROGRAM[] = "/usr/bin/Launcher.elf";
constexpr char EVENTS[] = "/dev/launcher_events";

}  // namespace

std::vector<std::string> Launcher::Paths() const {
  return {PROGRAM};
}

void Launcher::Furnish(RootDirectory& root) {
  root.PutFile(PROGRAM, fmt::format("#!/bin/sh\nread event <>{}\n", EVENTS), 0755);
  if (mkfifo(root.Outside(EVENTS).c_str(), 0600) != 0 && errno != EEXIST) {
    throw std::system_error(errno, std::generic_category(), EVENTS);
  }
}

void Launcher::Start() {
  phone_.start_program(PROGRAM);
}

size_t Launcher::Running() const {
  return phone_.processes_named("Launcher.elf").size();
}

std::vector<ModelCommand> Launcher::Commands() {
  return {{"launcher", "[start]", "tells whether the user interface runs, or starts it",
           [this](const std::vector<std::string>& words) {
             if (words == std::vector<std::string>{"start"})
               Start();
             else if (!words.empty())
               throw std::invalid_argument("launcher takes no word but \"start\".");
             return fmt::format("{} running\n", Running());
           }}};
}

}  // namespace simulator
