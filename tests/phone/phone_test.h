// A test that boots a simulated phone and is its host. The server is $PHONETESTD, or the phonetestd beside
// the test program.
#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <memory>

#include "protocol/result_codes.h"
#include "simulator/simulated_phone.h"
#include "tests/phone/host_line.h"

using simulator::AtPath;
using simulator::Below;
using simulator::JournalKind;
using simulator::LineIs;
using simulator::OfKind;

using Lines = std::vector<std::string>;
Lines operator+(Lines left, const Lines& right);

// Looks every few milliseconds; false when the condition still does not hold after the time.
bool Eventually(const std::function<bool()>& condition, std::chrono::milliseconds time_out = 10s);

class PhoneTest : public testing::Test {
 protected:
  PhoneTest();

  // To be changed before the phone is first used.
  simulator::PhoneOptions options;

  // The phone, made on first use: furnish its files and models before Boot.
  simulator::SimulatedPhone& Phone();
  // Boots and waits until the server serves commands; marks the journal there.
  void Boot();
  // Makes a new phone at the next use; with a state directory it has the files of the one before.
  void DiscardPhone();

  // Sends a command code and its request.
  void SendCommand(uint32_t code, const Bytes& request);
  // Sends a command and gives its whole answer; fails the test when it comes short or more comes behind it.
  Bytes Ask(uint32_t code, const Bytes& request, size_t answer_size,
            std::chrono::milliseconds time_out = 10s);
  // Of a command that answers one word.
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

  HostLine host;

 private:
  std::unique_ptr<simulator::SimulatedPhone> phone_;
  size_t mark_ = 0;
};
