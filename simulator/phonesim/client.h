// phonesim's commands to a phone that runs already. Each returns the program's exit status, and none waits
// without end for a phone that does not answer.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "posix/deadline.h"

namespace simulator {

// The name of the running phone that has this serial port. Throws an error with a sentence if there is none.
std::string PhoneAtPort(const std::string& port);

int StopPhone(const std::string& name);
// Returns when the phone runs again.
int RestartPhone(const std::string& name);
// As a list of JSON objects if wanted so.
int ShowPhones(bool as_json);
int ShellInPhone(const std::string& name);
// The names, or the serial ports, of the running phones: a line for each.
int ListNames();
int ListPorts();
struct JournalWish {
  bool follow = false;
  bool as_json = false;
  unsigned last = 0;  // only so many entries of before; 0: all
};
int ShowJournal(const std::string& name, const JournalWish& wish);
// To standard output until the phone ends: each changed picture of the LCD, at most 25 a second, as 240 x 320
// little-endian RGB565 pixels.
int FollowLcd(const std::string& name);
// To standard output until the phone ends: what it plays, as a WAV stream in the format of the first sound.
int Listen(const std::string& name);
// Without a status if no phone of this name runs, it does not know the command, or it does not answer until
// the deadline: then nothing was done.
std::optional<int> TryCommand(const std::string& name, std::vector<std::string> words,
                              const posix::Deadline& deadline);
// Sends the words as they are, and shows the answer.
int CommandPhone(const std::string& name, const std::vector<std::string>& words,
                 const posix::Deadline& deadline);
// Runs the commands in the lines of a file, or of standard input ("-"), one after another until one fails.
// "wait SECONDS" waits, and # starts a comment.
int RunScript(const std::string& name, const std::string& file);

}  // namespace simulator
