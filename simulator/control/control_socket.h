// The socket by which other programs control a running phone; its address is the phone's name. It is of the
// kind that has no file, so nothing is left of it when the phone is killed. Only the phone's own user and
// root are served.
//
// A request is a list of words, each ended by a zero byte. The answer is a status byte and the text of the
// answer, until the end of the connection. The word "shell" returns a terminal's descriptor with the status
// byte. "file-word" with a command's words returns who opens the file that it names, and the place of the
// word that is its path, or nothing; a bad answer means that there is no such command.
#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "posix/deadline.h"
#include "posix/file_descriptor.h"

namespace simulator {

constexpr char ANSWER_GOOD = '+';
constexpr char ANSWER_BAD = '-';
constexpr char ANSWER_LOST = '!';  // bad: output could not be written
// What "file-word" says first.
constexpr char FILE_OF_CALLER[] = "caller";
constexpr char FILE_OF_PHONE[] = "phone";
// How long a client takes to send its request, and a phone to answer it, at most.
constexpr auto CONTROL_TIME_OUT = std::chrono::seconds(5);

// The phone's side. Nothing here blocks.

// Listens under the phone's name. The descriptor is not open if another phone has this name.
posix::FileDescriptor ListenAs(const std::string& name);
// A second address, the device of the phone's serial port.
posix::FileDescriptor ListenAtPort(const std::string& device);
// Not open if the connection is another user's.
posix::FileDescriptor AcceptClient(const posix::FileDescriptor& listening);
// Adds to `request` what the client has sent. Returns true when the request is whole, or the client has gone.
bool ReceiveRequest(const posix::FileDescriptor& client, std::string& request);
std::vector<std::string> WordsOf(const std::string& request);
// A good answer that is a descriptor.
bool SendDescriptor(const posix::FileDescriptor& client, int descriptor);
// Removes from `pending` what the client takes now. Returns false if the client is gone.
bool SendSome(const posix::FileDescriptor& client, std::string& pending);

// The other side.

// Names of the phones of this user that run.
std::vector<std::string> RunningPhones();

struct Answer {
  bool good = false;
  std::string text;
  posix::FileDescriptor descriptor;
  bool output_lost = false;
};

// One request to a phone and its answer, until the deadline.
class PhoneRequest {
 public:
  PhoneRequest(const std::string& name, const std::vector<std::string>& words,
               const posix::Deadline& deadline = posix::Deadline(CONTROL_TIME_OUT));
  static PhoneRequest AtPort(const std::string& device, const std::vector<std::string>& words);

  // The whole answer, or a bad one with a sentence if no such phone runs or it does not answer in time.
  Answer TakeAnswer() {
    return TakeText(TakeStatus());
  }
  // Only the status byte and the descriptor: the text is still to be read, by TakeText or from Socket.
  Answer TakeStatus();
  Answer TakeText(Answer answer) {
    return TakeText(std::move(answer), deadline_);
  }
  Answer TakeText(Answer answer, const posix::Deadline& deadline);
  const posix::FileDescriptor& Socket() const {
    return socket_;
  }
  // No phone has this name.
  bool IsRefused() const {
    return !socket_.IsOpen();
  }

 private:
  PhoneRequest(const std::string& name, const std::string& path, const std::vector<std::string>& words,
               const posix::Deadline& deadline);
  Answer NoAnswer() const;

  std::string name_;  // for messages
  posix::Deadline deadline_;
  posix::FileDescriptor socket_;
};

}  // namespace simulator
