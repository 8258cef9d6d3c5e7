// The socket by which a running phone is worked from another program: phonesim's commands and each phone's
// name. It is of the kind that has no file, so nothing is left of it when the phone is killed. Only the
// phone's own user and root are served.
//
// A request is a list of words, each ended by a zero byte; the answer is a status byte and the bytes of the
// answer, until the connection's end. The word "shell" gets a terminal's descriptor with the status byte.
#pragma once

#include <string>
#include <vector>

#include "posix/file_descriptor.h"

namespace simulator {

constexpr char ANSWER_GOOD = '+';
constexpr char ANSWER_BAD = '-';

// Names the phone; not open when another phone has the name.
posix::FileDescriptor ListenAs(const std::string& name);
// Names of the phones of this user that run.
std::vector<std::string> RunningPhones();

// The phone's side. A connection of another user gives one that is not open.
posix::FileDescriptor AcceptClient(const posix::FileDescriptor& listening);
std::vector<std::string> ReceiveWords(const posix::FileDescriptor& client);
// A good answer that is a descriptor.
bool SendDescriptor(const posix::FileDescriptor& client, int descriptor);
// Takes off `pending` what the client takes now. False when it is gone.
bool SendSome(const posix::FileDescriptor& client, std::string& pending);

// The other side. Not open when no such phone runs.
posix::FileDescriptor ConnectTo(const std::string& name);
void SendWords(const posix::FileDescriptor& phone, const std::vector<std::string>& words);

struct Answer {
  bool good = false;
  std::string text;
  posix::FileDescriptor descriptor;
};
// The status byte and the descriptor; the text is still to be read.
Answer ReceiveStatus(const posix::FileDescriptor& phone);
// One request whole.
Answer Request(const std::string& name, const std::vector<std::string>& words);

}  // namespace simulator
