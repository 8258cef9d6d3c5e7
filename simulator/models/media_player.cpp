#include "simulator/models/media_player.h"

#include <fmt/format.h>
#include <fmt/ranges.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <system_error>

#include "simulator/phone/root_directory.h"

namespace simulator {
namespace {

constexpr char PLAYER[] = "/root/wavplayer.elf";
constexpr char NAME[] = "wavplayer.elf";
constexpr char WAITING_PLACE[] = "/root/.playing";

// Nobody ever writes to the named pipe, so its reader waits for good, in one process and without a sleep that
// could be made instant.
constexpr char PROGRAM[] = R"(#!/bin/sh
[ -f "$1" ] || { echo "wavplayer: no file $1"; exit 1; }
read end </root/.playing
)";

constexpr const char* CLIPS[] = {"/root/dmode/QeluAudioTest3.mp3", "/root/dmode/1500Hz AAC 48kHz.3gp",
                                 "/root/dmode/1500Hz AMR.3gp", "/usr/share/usr_data/Preload/HelloQelu.mp3"};

}  // namespace

std::vector<std::string> MediaPlayer::Paths() const {
  return {PLAYER};
}

void MediaPlayer::Furnish(RootDirectory& root) {
  root.PutFile(PLAYER, PROGRAM, 0755);
  root.Remove(WAITING_PLACE);
  if (mkfifo(root.Outside(WAITING_PLACE).c_str(), 0600) != 0) {
    throw std::system_error(errno, std::generic_category(), WAITING_PLACE);
  }
  for (const char* clip : CLIPS) root.PutStandIn(clip);
}

int MediaPlayer::Exec(const ExecCall& call) {
  state.starts.push_back({{call.arguments.begin() + 1, call.arguments.end()}, call.thread});
  return 0;
}

std::vector<pid_t> MediaPlayer::Playing() const {
  return phone_.processes_named(NAME);
}

std::vector<ModelCommand> MediaPlayer::Commands() {
  return {{"player", "", "tells what the media player plays", [this](const std::vector<std::string>&) {
             const std::vector<pid_t> playing = Playing();
             std::string text;
             for (const Start& start : state.starts) {
               if (std::ranges::find(playing, start.process) == playing.end()) continue;
               text += fmt::format("plays {}\n", fmt::join(start.arguments, " "));
             }
             return text.empty() ? "plays nothing\n" : text;
           }}};
}

}  // namespace simulator
