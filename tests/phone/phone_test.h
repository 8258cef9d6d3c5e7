// A test that boots a simulated phone and is its host. The server is $PHONETESTD, or the phonetestd beside
// the test program.
#pragma once

#include <gtest/gtest.h>
#include <termios.h>

#include <filesystem>
#include <memory>

#include "protocol/result_codes.h"
#include "simulator/simulated_phone.h"
#include "tests/phone/host_line.h"
#include "tests/phone/processes.h"

using simulator::AtPath;
using simulator::Below;
using simulator::JournalKind;
using simulator::LineIs;
using simulator::OfKind;

// Whether simulator and server are built with a sanitizer, whose run-time library has threads, memory and
// descriptors of its own.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool SANITIZED = true;
#else
constexpr bool SANITIZED = false;
#endif

// Whether a program has 32-bit words, whose calls have other numbers.
bool IsNarrow(const std::filesystem::path& program);

// The number in an environment variable, such as $SEED.
uint64_t EnvironmentNumber(const char* name, uint64_t otherwise);

using Lines = std::vector<std::string>;
Lines operator+(Lines left, const Lines& right);

// The server sets these fields on each line that it opens. The other fields keep the driver's values.
void ExpectServersSettings(const termios& line);

class PhoneTest : public testing::Test {
 protected:
  PhoneTest();

  // The server that was built with the test program.
  static std::filesystem::path NativeServer();

  // To be changed before the phone is first used.
  simulator::PhoneOptions options;

  // The phone, made on first use: furnish its files and models before Boot.
  simulator::SimulatedPhone& Phone();
  // Boots, waits until the server serves commands, and marks the journal there. Throws when the server does
  // not come to that.
  void Boot();
  // Makes a new phone at the next use; with a state directory it has the files of the one before.
  void DiscardPhone();

  // Sends a command code and its request.
  void SendCommand(uint32_t code, const Bytes& request);
  // Sends a command and returns its whole answer. Throws, which ends the test, when the answer does not come,
  // or the server has ended: nothing that follows would be answered. More bytes after the answer fail the
  // test.
  Bytes Ask(uint32_t code, const Bytes& request, size_t answer_size,
            std::chrono::milliseconds time_out = 10s);
  // The same for a command that answers one word.
  int32_t AskStatus(uint32_t code, const Bytes& request, std::chrono::milliseconds time_out = 10s);
  // The server still answers a ping.
  bool StillAnswers();

  // The processor time that the server has used, in clock ticks of 10 ms.
  long ProcessorTicks();

  // The journal's lines since the last mark; Boot marks its end.
  void MarkJournal();
  Lines LinesSince(const simulator::JournalFilter& filter = {});
  // Waits for an entry since the last mark.
  bool Appears(const simulator::JournalFilter& filter, std::chrono::milliseconds time_out = 10s);

  // Marks the journal, runs a command line in the phone and returns what was printed until its end.
  std::string RunInPhone(const std::string& command);

  // The server is an ARM executable under the emulator, whose memory and system calls are not only the
  // server's.
  bool IsEmulated() const;

  HostLine host;

 private:
  std::unique_ptr<simulator::SimulatedPhone> phone_;
  size_t mark_ = 0;
};
