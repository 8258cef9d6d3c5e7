#include "tests/phone/phone_test.h"

#include <elf.h>
#include <fmt/format.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>

bool IsNarrow(const std::filesystem::path& program) {
  std::ifstream file(program, std::ios::binary);
  char head[EI_CLASS + 1] = {};
  file.read(head, sizeof head);
  return head[EI_CLASS] != ELFCLASS64;
}

uint64_t EnvironmentNumber(const char* name, uint64_t otherwise) {
  const char* text = getenv(name);
  return text != nullptr ? std::stoull(text) : otherwise;
}

Lines operator+(Lines left, const Lines& right) {
  left.insert(left.end(), right.begin(), right.end());
  return left;
}

void ExpectServersSettings(const termios& line) {
  EXPECT_EQ(line.c_iflag, tcflag_t{IGNPAR});
  EXPECT_EQ(line.c_oflag, tcflag_t{0});
  EXPECT_EQ(line.c_cflag, tcflag_t{0x800010B2});
  EXPECT_EQ(line.c_lflag, tcflag_t{0});
  EXPECT_EQ(line.c_cc[VMIN], 0);
  EXPECT_EQ(line.c_cc[VTIME], 0);
  EXPECT_EQ(line.c_cc[VINTR], 3);
}

PhoneTest::PhoneTest() {
  const char* server = getenv("PHONETESTD");
  options.server = server != nullptr ? server : NativeServer();
  // A server built with the thread sanitizer ends at a report; otherwise it would only print it.
  options.environment = {"TSAN_OPTIONS=halt_on_error=1"};
}

std::filesystem::path PhoneTest::NativeServer() {
  return std::filesystem::read_symlink("/proc/self/exe").parent_path() / "phonetestd";
}

bool PhoneTest::IsEmulated() const {
  return simulator::IdentifyExecutable(options.server).processor == "ARM";
}

// Where a server that is built to count what it executes keeps the counts (tools/coverage). It maps the file,
// which is also in the folder that $COVERAGE_COUNTS names: it stays when the phone goes.
static void KeepCounts(simulator::SimulatedPhone& phone, const char* folder) {
  static int number = 0;
  const auto file = std::filesystem::path(folder) / fmt::format("phone-{}-{}.profraw", getpid(), ++number);
  std::ofstream(file).close();
  std::filesystem::create_hard_link(file, phone.Root().Outside("/counts"));
}

simulator::SimulatedPhone& PhoneTest::Phone() {
  if (phone_) return *phone_;
  const char* counts = getenv("COVERAGE_COUNTS");
  if (counts != nullptr) options.environment.emplace_back("LLVM_PROFILE_FILE=/counts%c");
  phone_ = std::make_unique<simulator::SimulatedPhone>(options);
  if (counts != nullptr) KeepCounts(*phone_, counts);
  return *phone_;
}

void PhoneTest::Boot() {
  Phone().Boot();
  host = HostLine(Phone().HostPort());
  // The last step of the server's start: from here on it waits for commands.
  const std::string started = "value /proc/backlight/lcd \"0\"";
  const auto last = Phone().GetJournal().WaitFor(LineIs(started) || OfKind({JournalKind::Event}), mark_, 60s);
  if (!last || last->Line() != started) {
    throw std::runtime_error("the server does not start; the phone's journal: " +
                             testing::PrintToString(LinesSince()));
  }
  MarkJournal();
}

void PhoneTest::DiscardPhone() {
  host = HostLine();
  phone_.reset();
  mark_ = 0;
}

void PhoneTest::SendCommand(uint32_t code, const Bytes& request) {
  host.Send(Words({code}) + request);
}

Bytes PhoneTest::Ask(uint32_t code, const Bytes& request, size_t answer_size,
                     std::chrono::milliseconds time_out) {
  SendCommand(code, request);
  const Bytes answer = host.Receive(answer_size, time_out, [this] { return Phone().IsRunning(); });
  if (answer.size() != answer_size) {
    const auto end = Phone().WaitForEnd(0ms);
    throw std::runtime_error(fmt::format("{} of {} bytes came as the answer to code 0x{:02X}; the server {}",
                                         answer.size(), answer_size, code, end ? end->Text() : "runs"));
  }
  EXPECT_TRUE(host.IsQuiet(20ms)) << "more came after the answer to code 0x" << std::hex << code;
  return answer;
}

int32_t PhoneTest::AskStatus(uint32_t code, const Bytes& request, std::chrono::milliseconds time_out) {
  return StatusOf(Ask(code, request, 4, time_out));
}

bool PhoneTest::StillAnswers() {
  return Ask(0x00, Words({0}), 4) == Words({1});
}

long PhoneTest::ProcessorTicks() {
  std::ifstream stat("/proc/" + std::to_string(Phone().ServerProcess()) + "/stat");
  std::string line;
  std::getline(stat, line);
  std::istringstream fields(line.substr(line.rfind(')') + 2));
  std::string field;
  long user = 0, system = 0;
  for (int i = 0; i < 11; ++i) fields >> field;
  fields >> user >> system;
  return user + system;
}

void PhoneTest::MarkJournal() {
  mark_ = Phone().GetJournal().Mark();
}

Lines PhoneTest::LinesSince(const simulator::JournalFilter& filter) {
  return Phone().GetJournal().Lines(mark_, filter);
}

bool PhoneTest::Appears(const simulator::JournalFilter& filter, std::chrono::milliseconds time_out) {
  return Phone().GetJournal().WaitFor(filter, mark_, time_out).has_value();
}

std::string PhoneTest::RunInPhone(const std::string& command) {
  const size_t before = Phone().ConsoleText().size();
  MarkJournal();
  Phone().RunShell(command + "; echo; echo the end");
  EXPECT_TRUE(Appears(LineIs("console the end")));
  const std::string printed = Phone().ConsoleText().substr(before);
  return printed.substr(0, printed.rfind("\nthe end\n"));
}
