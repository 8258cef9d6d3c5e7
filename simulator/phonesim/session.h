// A phone that runs until it is stopped, powered off or its server ends. Meanwhile other programs
// control it by its socket.
#pragma once

#include <atomic>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "posix/file_descriptor.h"
#include "simulator/control/control_socket.h"
#include "simulator/simulated_phone.h"

namespace simulator {

struct SessionOptions {
  PhoneOptions phone;
  std::string name;          // empty: the first free of "phone", "phone-2", ...
  std::string journal_file;  // one JSON object a line when it ends in ".json"
  std::string camera_file;   // a PNG or JPEG picture before the camera
  std::string lcd_file;      // the LCD as PNG when the phone ends
  bool goes_on = false;      // after a restart: the journal's file is continued
  bool prints_journal = false;
  pid_t ends_with = 0;  // a process of the PC, at whose end the phone is stopped; 0: none
};

class Session {
 public:
  // Boots the phone. Throws CannotSimulate and other errors with a sentence.
  explicit Session(SessionOptions options);
  ~Session();

  const std::string& Name() const {
    return options_.name;
  }
  const SessionOptions& Options() const {
    return options_;
  }
  SimulatedPhone& Phone() {
    return phone_;
  }
  // Waits, within reason, until the server has come through its start, whose last step sets the backlight.
  void AwaitServer();
  // The phone was switched off to be switched on again: a session with these options is to follow. None if
  // the phone has ended for good.
  std::optional<SessionOptions> OptionsOfRestart() const;
  // Until the phone's end or a signal to end; SIGINT, SIGTERM and SIGHUP must be blocked.
  PhoneEnd Run();

 private:
  // A connection whose request has not come whole, or whose answer has not gone out whole or goes on as long
  // as the phone does.
  struct Client {
    posix::FileDescriptor socket;
    posix::Deadline request_until{CONTROL_TIME_OUT};
    std::string request{};
    bool served = false;
    std::string pending{};
    size_t journal_next = SIZE_MAX;  // the first entry that it still lacks, if it wants the journal
    size_t journal_end = SIZE_MAX;
    bool follows = false;
    bool awaits_end = false;  // of the phone; what output was lost is added to the answer then
    bool wants_json = false;
    bool gone = false;
  };

  void TakeName();
  void Record(const JournalEntry& entry);
  std::string LostJournal(const std::string& reason) const;
  void Wait();
  void TakeRequest(Client& client);
  void Serve(Client& client, const std::vector<std::string>& words);
  void StartJournal(Client& client, const std::vector<std::string>& words);
  void TakeJournal(Client& client);
  bool GoOn(Client& client);
  std::string Status() const;
  std::string StatusAsJson() const;
  // The commands that make a model defective, one in each line, as a JSON list of words.
  std::string Defects();
  // Which of a command's words is a file's path: "caller 1", "phone 2", or nothing.
  // Throws std::invalid_argument if there is no such command.
  std::string FileWordOf(const std::vector<std::string>& words);

  SessionOptions options_;
  std::optional<ExecutableIdentity> executable_;  // as it was when the phone was made
  posix::FileDescriptor listening_;
  posix::FileDescriptor listening_at_port_;
  posix::FileDescriptor signals_;
  posix::FileDescriptor owner_;            // the process with which the phone ends
  posix::FileDescriptor changed_;          // an entry in the journal, or the phone's end
  std::atomic<bool> is_followed_ = false;  // each entry is to wake the session
  bool stopped_ = false;
  bool restarts_ = false;
  posix::FileDescriptor journal_;  // not open without one, and after it was lost
  std::vector<Client> clients_;
  SimulatedPhone phone_;
};

}  // namespace simulator
