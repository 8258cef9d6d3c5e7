// What a simulated device or tool is to the phone: it says which paths are its own, puts files there before
// the phone boots, supplies a descriptor when one of its paths is opened, answers the driver requests made on
// that descriptor and sees the start of its programs. A model lives on the phone's loop thread: none of its
// functions may block; tests and phonesim reach it through SimulatedPhone::With and its commands.
//
// A new model is a file in models/ that opens with what it emulates and keeps its state and the switches that
// make it misbehave in one struct, and a row in models/model_table.cpp.
#pragma once

#include <fcntl.h>
#include <sys/types.h>

#include <cerrno>
#include <cstdint>
#include <functional>
#include <limits>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <vector>

#include "posix/file_descriptor.h"

namespace simulator {

class Journal;
class PollLoop;
class RootDirectory;

// What the phone offers its models.
struct PhoneServices {
  RootDirectory& root;
  PollLoop& loop;
  Journal& journal;
  std::function<void()> power_off;
  std::function<void()> cut_power;  // ends every process at once
  // The phone's processes whose program has this name, by the PC's process numbers.
  std::function<std::vector<pid_t>(const std::string& name)> processes_named;
  // Starts a program without arguments beside the server. Only while the phone runs.
  std::function<void(const std::string& path)> start_program;
};

struct OpenCall {
  std::string path;  // with links resolved
  int flags;         // as the caller gave them
  pid_t thread;

  bool Reads() const {
    return (flags & O_ACCMODE) != O_WRONLY;
  }
  bool Writes() const {
    return (flags & O_ACCMODE) != O_RDONLY;
  }
  // What a descriptor that is made for the caller must carry: access mode, O_NONBLOCK, O_APPEND.
  int ModeFlags() const {
    return flags & (O_ACCMODE | O_NONBLOCK | O_APPEND);
  }
};

class OpenAnswer {
 public:
  // The caller gets this descriptor; driver requests on it come to the model.
  static OpenAnswer Descriptor(posix::FileDescriptor descriptor) {
    return {std::move(descriptor), 0, true, {}};
  }
  // The same for a descriptor of something that ends before the phone does (one opening, a plugged port), and
  // with it what the simulator knows about the descriptor.
  static OpenAnswer DescriptorOf(std::weak_ptr<const void> object, posix::FileDescriptor descriptor) {
    return {std::move(descriptor), 0, true, std::move(object)};
  }
  // The same for a descriptor of one open only that takes no driver requests (a text, a pipe).
  static OpenAnswer PlainDescriptor(posix::FileDescriptor descriptor) {
    return {std::move(descriptor), 0, false, {}};
  }
  static OpenAnswer Refusal(int error) {
    return {posix::FileDescriptor(), error, false, {}};
  }
  // The open goes on to the file that stands at the path.
  static OpenAnswer OrdinaryFile() {
    return {posix::FileDescriptor(), 0, false, {}};
  }

  posix::FileDescriptor descriptor;
  int error;
  bool takes_requests;
  std::optional<std::weak_ptr<const void>> object;  // what the descriptor is of; none: as old as the phone
};

struct RequestAnswer {
  static RequestAnswer Success(int64_t result = 0) {
    return {result, 0, false};
  }
  static RequestAnswer Refusal(int error) {
    return {-1, error, false};
  }
  // Answered later, through the request that DriverRequest::Hold returned.
  static RequestAnswer Later() {
    return {0, 0, true};
  }

  int64_t result;
  int error;
  bool later;
};

// One driver request (ioctl) on a descriptor of the model.
class DriverRequest {
 public:
  virtual ~DriverRequest() = default;

  std::string path;  // that the descriptor was opened by
  uint32_t number = 0;
  uint64_t argument = 0;  // an address in the caller, or a plain value
  pid_t thread = 0;
  int descriptor = -1;  // in the caller

  // The bytes at the argument's address. What was read and written goes into the journal. Return false if the
  // address is not in the caller's memory: answer EFAULT then.
  virtual bool Read(void* bytes, size_t size) = 0;
  virtual bool Write(const void* bytes, size_t size) = 0;
  template <typename Record>
  std::optional<Record> ReadRecord() {
    static_assert(std::is_trivially_copyable_v<Record>);
    Record record;
    if (!Read(&record, sizeof record)) return std::nullopt;
    return record;
  }
  template <typename Record>
  bool WriteRecord(const Record& record) {
    static_assert(std::is_trivially_copyable_v<Record>);
    return Write(&record, sizeof record);
  }

  // The file position of the caller's descriptor, where its next read or write takes place.
  virtual int64_t FilePosition() const = 0;

  // Keeps the request for an answer at another time; the model returns RequestAnswer::Later().
  virtual std::shared_ptr<DriverRequest> Hold() = 0;
  virtual void Answer(RequestAnswer answer) = 0;
};

struct ExecCall {
  std::string path;
  std::vector<std::string> arguments;  // the program's name first
  pid_t thread;
};

// A number among the words of a command: decimal, or hexadecimal with 0x. Throws std::invalid_argument with a
// sentence.
inline int64_t NumberWord(const std::string& word) {
  size_t used = 0;
  int64_t number = 0;
  try {
    number = std::stoll(word, &used, 0);
  } catch (const std::exception&) {
    used = 0;
  }
  if (used == 0 || used != word.size()) throw std::invalid_argument("\"" + word + "\" is not a number.");
  return number;
}

// The same for a number of something, which fits an int.
inline int CountWord(const std::string& word) {
  const int64_t number = NumberWord(word);
  if (number < 0 || number > std::numeric_limits<int>::max()) {
    throw std::invalid_argument("\"" + word + "\" is out of range.");
  }
  return static_cast<int>(number);
}

// Which of a command's words is the path of a file of the PC. phonesim may be called in another folder than
// the one where the phone was started.
struct FileWord {
  enum class Opener {
    Caller,  // the command's text is the content of the file, which phonesim writes; the phone gets no path
    Phone,   // phonesim makes the path absolute
  };

  Opener opener;
  size_t place;                 // 0: the first word after the command's name
  std::string subcommand = {};  // there is such a file only after this first word
};

// A command by which a person or a script controls a model: `phonesim key 0x74`.
struct ModelCommand {
  std::string name;
  std::string usage;  // the words after the name
  std::string help;
  // Returns the text to show. Throws std::invalid_argument with a sentence for words that make no sense, and
  // posix::OutputLost.
  std::function<std::string(const std::vector<std::string>& words)> run;
  std::optional<FileWord> file = {};
  // Words after the name that make the model defective, each in another way.
  std::vector<std::vector<std::string>> defects = {};
};

class DeviceModel {
 public:
  explicit DeviceModel(PhoneServices& phone) : phone_(phone) {}
  virtual ~DeviceModel() = default;
  DeviceModel(const DeviceModel&) = delete;
  DeviceModel& operator=(const DeviceModel&) = delete;

  // The devices and programs that are this model's. Each gets an empty stand-in if Furnish puts nothing
  // there.
  virtual std::vector<std::string> Paths() const = 0;
  // Directories of ordinary files: the model is asked before one of them is opened or created, and can
  // refuse.
  virtual std::vector<std::string> Folders() const {
    return {};
  }
  // Puts files into the root directory, once, before the phone boots.
  virtual void Furnish(RootDirectory&) {}
  virtual OpenAnswer Open(const OpenCall&) {
    return OpenAnswer::OrdinaryFile();
  }
  virtual RequestAnswer Request(DriverRequest&) {
    return RequestAnswer::Refusal(ENOTTY);
  }
  // One of the paths is started as a program. Returns 0 to let the file at the path start, or an errno value.
  virtual int Exec(const ExecCall&) {
    return 0;
  }
  virtual std::vector<ModelCommand> Commands() {
    return {};
  }

 protected:
  PhoneServices& phone_;
};

}  // namespace simulator
