// Every call of the server that touches a device, a file, a process or memory fails once, and again from some
// call on. For each command of the protocol the n-th call of its work is refused or cut short, n rising until
// the command passes untouched. After each fault the answer has its size and a status that the protocol
// states, the server answers a ping, and no descriptor, thread or process stays but those that are left on
// purpose.
//
// A part of the faults is tried by default; $FAULTS=all tries every one.
#include <asm/unistd.h>
#include <fmt/format.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <map>
#include <mutex>
#include <set>
#include <thread>

#include "simulator/models/controls.h"
#include "tests/phone/call_tracer.h"
#include "tests/phone/every_command.h"
#include "tests/phone/flash_test.h"

namespace {

namespace fs = std::filesystem;
using protocol::CommandDescription;

// What may happen to a call: an error, or a transfer of fewer bytes.
struct Fault {
  int error = 0;
  bool shortened = false;
};

// The faults that each kind of call can meet on a phone. Calls that only arrange things (signal masks, locks)
// have none.
const std::vector<Fault>& FaultsOf(uint64_t number) {
  static const std::map<uint64_t, std::vector<Fault>> faults = {
      {__NR_open, {{ENOENT}, {EMFILE}, {EACCES}}},
      {__NR_openat, {{ENOENT}, {EMFILE}, {EACCES}}},
      {__NR_ioctl, {{EIO}, {EINVAL}}},
      {__NR_read, {{EIO}, {EINTR}, {0, true}}},
      {__NR_write, {{EIO}, {ENOSPC}, {EINTR}, {0, true}}},
      {__NR_lseek, {{EINVAL}}},
      {__NR_fstat, {{EIO}}},
      {__NR_newfstatat, {{EIO}}},
      {__NR_fsync, {{EIO}, {EINTR}}},
      {__NR_mmap, {{ENOMEM}}},
      {__NR_fcntl, {{EINVAL}}},
      {__NR_pipe2, {{EMFILE}}},
      {__NR_clone, {{EAGAIN}, {ENOMEM}}},
      {__NR_clone3, {{EAGAIN}, {ENOMEM}}},
      {__NR_vfork, {{EAGAIN}, {ENOMEM}}},
      {__NR_wait4, {{EINTR}}},
      {__NR_select, {{EINTR}, {ENOMEM}}},
      {__NR_pselect6, {{EINTR}, {ENOMEM}}},
      {__NR_poll, {{EINTR}}},
      {__NR_settimeofday, {{EPERM}}},
  };
  static const std::vector<Fault> none;
  const auto found = faults.find(number);
  return found == faults.end() ? none : found->second;
}

// The number that the call has in a 64-bit program.
uint64_t WideNumber(const TracedCall& call) {
  if (!call.narrow) return call.number;
  static const std::map<uint64_t, uint64_t> wide = {
      {5, __NR_open},         {295, __NR_openat}, {54, __NR_ioctl},       {3, __NR_read},
      {4, __NR_write},        {19, __NR_lseek},   {140, __NR_lseek},      {197, __NR_fstat},
      {300, __NR_newfstatat}, {118, __NR_fsync},  {192, __NR_mmap},       {221, __NR_fcntl},
      {331, __NR_pipe2},      {120, __NR_clone},  {435, __NR_clone3},     {190, __NR_vfork},
      {114, __NR_wait4},      {7, __NR_wait4},    {142, __NR_select},     {308, __NR_pselect6},
      {413, __NR_pselect6},   {168, __NR_poll},   {79, __NR_settimeofday}};
  const auto found = wide.find(call.number);
  return found == wide.end() ? __NR_getpid : found->second;
}

// What a fault that was an interruption by a signal met. After one of a wait or a sync, the command goes on.
enum class Interruption { None, OfTransfer, OfWait };

// Strikes the n-th call of a command's work, and if wanted all that follow. The work begins when the
// command's request has been read, and ends when its answer is written.
class Striker {
 public:
  Striker(pid_t server, const std::string& host_port)
      : server_(server), host_port_(host_port), tracer_(server, [this](const TracedCall& call) {
          const std::lock_guard lock(mutex_);
          return Decide(call);
        }) {}

  // For the next command: its n-th call (from 0) meets its `which`-th fault.
  // `hurry` makes waits end at once after that; `on` lets the work go on after the answer.
  void Aim(size_t nth, size_t which, bool sticky, bool hurry, bool on) {
    const std::lock_guard lock(mutex_);
    nth_ = nth;
    which_ = which;
    sticky_ = sticky;
    hurry_ = hurry;
    on_ = on;
    seen_ = 0;
    struck_ = false;
    answer_struck_ = false;
    port_reads_ = 0;
    working_ = false;
    armed_ = true;
  }
  // Whether the fault struck; nothing strikes from here on.
  bool Disarm() {
    const std::lock_guard lock(mutex_);
    armed_ = false;
    return struck_;
  }
  // How many faults the call that was struck could meet.
  size_t Choices() const {
    const std::lock_guard lock(mutex_);
    return choices_;
  }
  bool StruckTheAnswer() const {
    const std::lock_guard lock(mutex_);
    return answer_struck_;
  }
  Interruption Interrupted() const {
    const std::lock_guard lock(mutex_);
    return interruption_;
  }
  std::string Story() const {
    const std::lock_guard lock(mutex_);
    return story_;
  }

 private:
  CallFate Decide(const TracedCall& call) {
    if (!armed_ || !IsServer(call.thread)) return {};
    const bool port = (call.IsRead() || call.IsWrite()) && call.DescriptorPath() == host_port_;
    if (port && call.IsRead()) {
      // The code, then the request; a third read is the next command's.
      ++port_reads_;
      working_ = on_ ? port_reads_ >= 2 : port_reads_ == 2;
      return {};
    }
    if (!working_) return {};
    if (port && !on_) working_ = false;
    const uint64_t number = WideNumber(call);
    const std::vector<Fault>& faults = FaultsOf(number);
    // Waits whose end no one needs any more: the fault has struck, and time is real.
    const bool waits = number == __NR_select || number == __NR_pselect6;
    if (struck_ && hurry_ && waits) return {CallFate::Kind::Refused, 0, 0};
    if (faults.empty()) return {};
    // The answer itself is refused only by a fault of its own: otherwise there would be nothing to look at.
    const bool strikes = seen_ == nth_ || (sticky_ && seen_ > nth_ && !port);
    ++seen_;
    if (!strikes) return {};
    if (!struck_) {
      choices_ = faults.size();
      if (which_ >= choices_) return {};
      story_ = fmt::format("call {} ({})", call.number, call.DescriptorPath() + call.PathArgument(1));
    }
    struck_ = true;
    answer_struck_ = answer_struck_ || port;
    const Fault& fault = faults[std::min(which_, faults.size() - 1)];
    if (fault.error != EINTR) {
      interruption_ = Interruption::None;
    } else {
      interruption_ = call.IsRead() || call.IsWrite() ? Interruption::OfTransfer : Interruption::OfWait;
    }
    // A call that is interrupted without end is repeated without end, as the C library does.
    if (fault.error == EINTR && seen_ > nth_ + 1) return {};
    if (fault.shortened) return {CallFate::Kind::Shortened, std::max<uint64_t>(1, call.Size() / 2), 0};
    return {CallFate::Kind::Refused, 0, fault.error};
  }

  bool IsServer(pid_t thread) const {
    return thread == server_ || fs::exists(fmt::format("/proc/{}/task/{}", server_, thread));
  }

  mutable std::mutex mutex_;
  pid_t server_;
  std::string host_port_;
  size_t nth_ = 0, which_ = 0, seen_ = 0, choices_ = 1;
  int port_reads_ = 0;
  bool sticky_ = false, hurry_ = false, on_ = false, struck_ = false, answer_struck_ = false;
  bool working_ = false, armed_ = false;
  Interruption interruption_ = Interruption::None;
  std::string story_;
  CallTracer tracer_;  // last: it decides from its first moment on
};

class FaultLoop : public FlashTest, public testing::WithParamInterface<CommandDescription> {
 protected:
  FaultLoop() {
    options.instant_sleeps = true;
  }

  void Start() {
    striker_.reset();
    DiscardPhone();
    Phone().Root().PutFile("/usr/share/usr_data/Photos/BlemishTest.jpg", std::string(5000, 'p'));
    Boot();
    const std::string port =
        fs::read_symlink(fmt::format("/proc/{}/fd/{}", Phone().ServerProcess(), PortDescriptor()));
    striker_ = std::make_unique<Striker>(Phone().ServerProcess(), port);
    // Descriptors and threads that the command's first run leaves for good are there from here on.
    Converse(nullptr);
    reference_ = answer_;
    Settle();
    before_ = HoldingsOf(Phone().ServerProcess());
  }

  int PortDescriptor() {
    for (const auto& entry : fs::directory_iterator(fmt::format("/proc/{}/fd", Phone().ServerProcess()))) {
      const int number = std::stoi(entry.path().filename());
      if (number > 2 && fs::read_symlink(entry).string().starts_with("/dev/pts/")) return number;
    }
    throw std::runtime_error("the server has no host port");
  }

  // Sends the command and takes what comes. Returns whether the fault struck, if there is one.
  bool Converse(const std::function<void()>& aim) {
    const CommandDescription& command = GetParam();
    if (aim) aim();
    SendCommand(command.code, RequestFor(command));
    const size_t size = protocol::AnswerSize(command);
    answer_.clear();
    if (size == 0) host.IsQuiet(30ms);
    const auto deadline = std::chrono::steady_clock::now() + 5s;
    while (answer_.size() < size && std::chrono::steady_clock::now() < deadline) {
      const Bytes piece = host.Receive(size - answer_.size(), 50ms);
      answer_ = answer_ + piece;
      if (piece.empty() && aim && striker_->StruckTheAnswer()) break;
    }
    // The calls up to the thread's first sound or its wait for a touch, or the relay's first wait.
    if (aim && WorksOn()) std::this_thread::sleep_for(150ms);
    return aim ? striker_->Disarm() : false;
  }

  // After its answer, in a thread or as the relay.
  static bool WorksOn() {
    const uint32_t code = GetParam().code;
    return code == protocol::CONTROL_TONE || code == protocol::CONTROL_TOUCH_TEST ||
           code == protocol::PASS_THROUGH;
  }

  // Brings the command's state back: no thread runs, no chunk reader is in the middle.
  void Settle() {
    using namespace protocol;
    const uint32_t code = GetParam().code;
    if (code == READ_PICTURE) Ask(code, Words({STOP_READING_BLEMISH}), 1028);
    if (code == CONTROL_TONE) AskStatus(code, Words({0, 0, 0, 0, 0, 0, 0}));
    if (code == CONTROL_TOUCH_TEST) Ask(code, Words({TOUCH_STOP, 0}), 12);
    if (code == PASS_THROUGH) LeaveRelay();
    if (code == PAUSE_LINK) Eventually([this] { return PingAnswers(); });
  }

  // The frame must be alone in one read, which a busy machine may not give it at once: then the relay stays.
  // If the relay was not entered, the frame is drained as an unknown code, and a ping of that second with it.
  void LeaveRelay() {
    auto alone = 50ms;
    Eventually(
        [&] {
          host.Send(Bytes(std::begin(LEAVE_FRAME), std::end(LEAVE_FRAME)));
          host.IsQuiet(alone);
          alone = 500ms;
          return PingAnswers() || PingAnswers();
        },
        20s);
  }

  bool PingAnswers() {
    host.Receive(4096, 5ms);  // the rest of an answer that was cut short
    SendCommand(protocol::PING, Words({0}));
    return host.Receive(4, 1500ms) == Words({1});
  }

  int32_t AnsweredStatus() const {
    return answer_.size() < 4 ? 0 : StatusOf(answer_);
  }

  // The answer has its size, and a status that the command's statement knows. If the answer itself was
  // refused there is none, or a part of it.
  void CheckAnswer() {
    const CommandDescription& command = GetParam();
    const size_t size = protocol::AnswerSize(command);
    if (answer_.size() != size) {
      EXPECT_TRUE(striker_->StruckTheAnswer()) << "no answer of " << size << " bytes: " << answer_.size();
      return;
    }
    EXPECT_TRUE(IsStatedAnswer(command, answer_)) << "status " << StatusOf(answer_);
  }

  // Whether a descriptor may stay open after a fault.
  bool StaysOnPurpose(const std::string& file) {
    using namespace protocol;
    const uint32_t code = GetParam().code;
    // A template that is too large, or whose size cannot be told.
    if (code == WRITE_BLUETOOTH_ADDRESS || code == WRITE_BLUETOOTH_ADDRESS_EXTENDED) {
      return AnsweredStatus() == OUT_OF_RANGE && file.find("template") != std::string::npos;
    }
    if (code == CONTROL_TONE)
      return file.starts_with("pipe:");  // the PCM device, if the mixer cannot be opened
    if (code == SHOW_DISPLAY || code == CONTROL_TOUCH_TEST) return file.starts_with("/memfd:device");
    return code == READ_MODEM_IMAGE || code == READ_PICTURE;  // the reader's place in the file
  }

  void CheckHoldings() {
    Holdings after;
    const bool clean = Eventually(
        [&] {
          after = HoldingsOf(Phone().ServerProcess());
          std::multiset<std::string> more;
          std::ranges::set_difference(after.files, before_.files, std::inserter(more, more.end()));
          std::erase_if(more, [this](const std::string& file) { return StaysOnPurpose(file); });
          return more.empty() && after.threads <= before_.threads && after.children == 0;
        },
        2s);
    EXPECT_TRUE(clean) << testing::PrintToString(after.files) << " where there were "
                       << testing::PrintToString(before_.files) << "; " << after.threads << " threads, "
                       << after.children << " children";
    before_.files = after.files;  // with what stays on purpose
  }

  // Of the partition information, which is kept twice, one copy survives any single fault.
  void CheckFlash(bool sticky) {
    if (GetParam().code != protocol::SET_PARTITION_WORD || sticky) return;
    const bool verifies = std::ranges::any_of(
        std::array{"Partition Info", "Partition Info Bak"},
        [&](const char* name) { return simulator::RecordVerifies(AsBytes(Flash(name))); });
    EXPECT_TRUE(verifies);
  }

  // A transfer that was interrupted leaves nothing that changes the next answer. A file that is read piece by
  // piece goes on where it was.
  void ExpectTheReference() {
    if (GetParam().code == protocol::READ_MODEM_IMAGE || GetParam().code == protocol::READ_PICTURE) return;
    Converse(nullptr);
    EXPECT_EQ(answer_, reference_) << "the next time";
    Settle();
  }

  // One fault. Returns false when the command had no such call any more.
  bool TryFault(size_t nth, size_t which, bool sticky) {
    const uint32_t code = GetParam().code;
    const bool hurry = code == protocol::CHECK_SIM || code == protocol::EXCHANGE_AT;
    const bool struck = Converse([&] { striker_->Aim(nth, which, sticky, hurry, WorksOn()); });
    if (!struck) return false;
    const std::string story = striker_->Story();
    SCOPED_TRACE(fmt::format("{}, fault {} of call number {}{}: {}", GetParam().name, which, nth,
                             sticky ? " and all that follow" : "", story));
    CheckAnswer();
    const Interruption interruption = sticky ? Interruption::None : striker_->Interrupted();
    if (interruption == Interruption::OfWait && !hurry) {
      EXPECT_EQ(answer_, reference_);
    }
    const auto end = Phone().WaitForEnd(0ms);
    EXPECT_FALSE(end.has_value()) << end->Text();
    if (HasFailure()) return false;
    host.IsQuiet(1ms);
    Settle();
    EXPECT_TRUE(Eventually([this] { return PingAnswers(); }, 5s)) << "no ping is answered";
    CheckHoldings();
    CheckFlash(sticky);
    if (interruption == Interruption::OfTransfer) ExpectTheReference();
    // A tone that has no thread counts as running for good, on purpose.
    if (GetParam().code == protocol::CONTROL_TONE && AnsweredStatus() < 0) Start();
    return !HasFailure();
  }

  std::unique_ptr<Striker> striker_;
  Holdings before_;
  Bytes answer_;
  Bytes reference_;  // without a fault
};

TEST_P(FaultLoop, LeavesAServerThatAnswers) {
  // A sanitizer's run-time library does not live without memory.
  if (SANITIZED || IsEmulated()) GTEST_SKIP() << "only for a PC's server without sanitizers";
  const char* wanted = getenv("FAULTS");
  const bool all = wanted != nullptr && std::string(wanted) == "all";
  Start();
  size_t faults = 0;
  size_t nth = 0;
  // A command with many calls makes the same ones again and again. The default run then leaves most of them
  // out, and more so for the 32-bit server, whose code is the same.
  const bool narrow = IsNarrow(options.server);
  const size_t first_calls = narrow ? 6 : 12;
  const size_t step = narrow ? 13 : 4;
  for (bool more = true; more && !HasFailure(); nth += all || nth < first_calls ? 1 : step) {
    more = false;
    size_t choices = 1;
    for (size_t which = 0; which < choices && !HasFailure(); ++which) {
      for (const bool sticky : {false, true}) {
        // The default run takes one fault of each call in turn, so that every call and every kind is met.
        if (!all && which + (sticky ? 1 : 0) != nth % 3 && which != 0) continue;
        if (!TryFault(nth, which, sticky)) {
          if (HasFailure()) break;
          continue;
        }
        choices = striker_->Choices();
        more = true;
        ++faults;
      }
    }
  }
  EXPECT_GT(faults, 0u) << "nothing was tried";
  RecordProperty("faults", static_cast<int>(faults));
  std::cout << fmt::format("{}: {} faults\n", GetParam().name, faults);
}

// Those that return, and the relay, which is left.
std::vector<CommandDescription> Struck() {
  std::vector<CommandDescription> commands = CommandsThatReturn();
  commands.push_back(
      *std::ranges::find(protocol::COMMANDS, protocol::PASS_THROUGH, &CommandDescription::code));
  return commands;
}

INSTANTIATE_TEST_SUITE_P(Command, FaultLoop, testing::ValuesIn(Struck()),
                         [](const testing::TestParamInfo<CommandDescription>& tried) {
                           return fmt::format("Code0x{:02X}", tried.param.code);
                         });

// What the server does before it serves, in its two other modes, and when it switches the phone off: each
// open, driver request and program of a good run fails, in the order of the journal.
class ModeFaultLoop : public PhoneTest {
 protected:
  ModeFaultLoop() {
    options.instant_sleeps = true;
  }

  // `run` makes a phone, booted by then if `boot`, come to its end or to its service. Returns the number of
  // faults.
  size_t FailEachStep(bool boot, const std::function<void()>& run) {
    using simulator::FaultCall;
    using simulator::FaultRule;
    if (boot) Boot();
    const size_t start = Phone().GetJournal().Mark();
    run();
    const auto entries =
        Phone().GetJournal().Entries(start, OfKind({JournalKind::Open, JournalKind::Request}));
    std::map<std::string, int> before;
    size_t faults = 0;
    for (const simulator::JournalEntry& entry : entries) {
      const bool request = entry.kind == JournalKind::Request;
      const int nth = ++before[(request ? "request " : "open ") + entry.path];
      if (!request && entry.path == "/dev/usb/tts/0") continue;  // has tests of its own
      SCOPED_TRACE("refused: " + entry.Line());
      DiscardPhone();
      if (boot) Boot();
      Phone().GetFaults().Add({.call = request ? FaultCall::Request : FaultCall::Open,
                               .path = entry.path,
                               .nth = nth,
                               .error = EIO});
      run();
      ++faults;
      if (HasFailure()) break;
    }
    return faults;
  }

  void SetStopFlag() {
    Phone().With<simulator::Gpio>([](simulator::Gpio& gpio) { gpio.state.stop_flag = 1; });
  }

  void ExpectEnd(simulator::PhoneEnd::Reason reason) {
    const auto end = Phone().WaitForEnd(20s);
    ASSERT_TRUE(end.has_value());
    EXPECT_EQ(end->reason, reason) << end->Text();
    EXPECT_EQ(end->status, 0);
  }
};

TEST_F(ModeFaultLoop, TheStartServes) {
  std::cout << FailEachStep(false, [this] {
    Phone().Boot();
    host = HostLine(Phone().HostPort());
    EXPECT_TRUE(Appears(LineIs("open /dev/usb/tts/0 rw+cloexec")));
    EXPECT_TRUE(Eventually([this] {
      SendCommand(0x00, Words({0}));
      return host.Receive(4, 300ms) == Words({1});
    }));
  }) << " faults of the start\n";
}

TEST_F(ModeFaultLoop, ModemControlEnds) {
  options.server_arguments = {"-c", "1"};
  const size_t faults = FailEachStep(false, [this] {
    Phone().Boot();
    ExpectEnd(simulator::PhoneEnd::Reason::ServerExited);
  });
  EXPECT_GT(faults, 1u);
}

// The stop flag is set, so the relay ends at its first look at it that succeeds.
TEST_F(ModeFaultLoop, TheRelayAloneEnds) {
  options.server_arguments = {"-g"};
  const size_t faults = FailEachStep(false, [this] {
    SetStopFlag();
    Phone().Boot();
    ExpectEnd(simulator::PhoneEnd::Reason::ServerExited);
  });
  EXPECT_GT(faults, 1u);
}

TEST_F(ModeFaultLoop, PowerOffEndsTheServer) {
  const size_t faults = FailEachStep(true, [this] {
    SendCommand(0x02, Words({0}));
    const auto end = Phone().WaitForEnd(20s);
    ASSERT_TRUE(end.has_value());
    EXPECT_NE(end->reason, simulator::PhoneEnd::Reason::ServerKilled) << end->Text();
  });
  EXPECT_GT(faults, 1u);
}

}  // namespace
