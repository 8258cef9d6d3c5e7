// What the server holds before and after every command that returns: descriptors, threads and children, ended
// or not. Every command is sent as it succeeds, and as it is refused at each of its opens, driver requests
// and programs. Only what stands in the table below may stay.
#include <fmt/format.h>

#include <map>

#include "simulator/models/front_panel.h"
#include "simulator/models/sound.h"
#include "tests/phone/every_command.h"
#include "tests/phone/phone_test.h"

namespace {

using namespace protocol;
using simulator::FaultCall;
using simulator::JournalEntry;

// What may stay on purpose: the place in a file that is read piece by piece, and a device that the next step
// could not follow. `file` is the beginning of where the descriptor leads, `refused` of the journal's line of
// the step that failed; empty: none did.
struct Kept {
  uint32_t code;
  std::string file;
  std::string refused;
};
const Kept KEPT[] = {
    {CONTROL_TONE, "pipe:", "open /dev/sound/mixer"},
};

class NothingStaysTest : public PhoneTest, public testing::WithParamInterface<CommandDescription> {
 protected:
  NothingStaysTest() {
    options.instant_sleeps = true;
    Phone().With<simulator::Sound>([](simulator::Sound& sound) { sound.state.paced = false; });
    Phone().Root().PutFile("/usr/share/usr_data/Photos/BlemishTest.jpg", std::string(100, 'p'));
    Boot();
  }

  // The whole of what the command starts: a thread is stopped, a file read to its end.
  void Carry(const Bytes& request) {
    const CommandDescription& command = GetParam();
    const size_t size = AnswerSize(command);
    SendCommand(command.code, request);
    const Bytes answer = host.Receive(size, 60s);
    EXPECT_TRUE(IsStatedAnswer(command, answer)) << testing::PrintToString(answer);
    switch (command.code) {
      case CONTROL_TONE:
        Ask(command.code, Bytes(28), size);
        break;
      case CONTROL_TOUCH_TEST:
        Ask(command.code, Words({TOUCH_STOP, 0}), size);
        break;
      case READ_MODEM_IMAGE:
        if (StatusOf(answer) == static_cast<int32_t>(GSM_FFS_CHUNK_SIZE)) Carry(request);
        break;
      case PLAY_MEDIA:
        AskStatus(command.code, Words({CLIP_STOP, 0, 0}));
        break;
      case CONTROL_RADIO:
        Ask(command.code, Bytes(20), size);
        break;
      default:
        break;
    }
    EXPECT_TRUE(Eventually([this] {
      SendCommand(PING, Words({0}));
      return host.Receive(4, 300ms) == Words({1});
    }));
    host.IsQuiet(5ms);
  }

  // Carries it out, and again; nothing may be held then that was not held before, or less.
  void ExpectTheSame(const std::string& refused) {
    SCOPED_TRACE(fmt::format("{}, refused: {}", GetParam().name, refused));
    const pid_t server = Phone().ServerProcess();
    for (int round = 0; round < 2; ++round) {
      Carry(RequestFor(GetParam()));
      Holdings after;
      Eventually([&] { return (after = HoldingsOf(server)) == before_; }, 1s);
      std::multiset<std::string> more;
      std::ranges::set_difference(after.files, before_.files, std::inserter(more, more.end()));
      for (const Kept& kept : KEPT) {
        if (kept.code != GetParam().code || !refused.starts_with(kept.refused)) continue;
        const auto found =
            std::ranges::find_if(more, [&](const auto& file) { return file.starts_with(kept.file); });
        if (found == more.end()) continue;
        before_.files.insert(*found);
        more.erase(found);
      }
      EXPECT_EQ(after.files, before_.files);
      EXPECT_EQ(after.threads, before_.threads);
      EXPECT_EQ(after.children, before_.children);
      before_ = after;
    }
  }

  Holdings before_;
};

TEST_P(NothingStaysTest, AfterSuccessAndAfterEachRefusal) {
  ASSERT_TRUE(StillAnswers());  // the start has closed what it opened
  before_ = HoldingsOf(Phone().ServerProcess());
  ExpectTheSame("nothing");
  const size_t mark = Phone().GetJournal().Mark();
  Carry(RequestFor(GetParam()));
  std::map<std::string, int> times;
  for (const JournalEntry& entry : Phone().GetJournal().Entries(
           mark, OfKind({JournalKind::Open, JournalKind::Request, JournalKind::Tool, JournalKind::Shell}))) {
    const FaultCall call = entry.kind == JournalKind::Open      ? FaultCall::Open
                           : entry.kind == JournalKind::Request ? FaultCall::Request
                                                                : FaultCall::Exec;
    const std::string path = entry.kind == JournalKind::Shell ? "/bin/sh" : entry.path;
    const int nth = ++times[fmt::format("{} {}", static_cast<int>(call), path)];
    if (path.starts_with("/dev/usb/tts") || HasFailure()) continue;
    Phone().GetFaults().Add({.call = call, .path = path, .nth = nth, .error = EIO});
    ExpectTheSame(entry.Line());
    Phone().GetFaults().Clear();
  }
}

INSTANTIATE_TEST_SUITE_P(Command, NothingStaysTest, testing::ValuesIn(CommandsThatReturn()),
                         [](const testing::TestParamInfo<CommandDescription>& tried) {
                           return fmt::format("Code0x{:02X}", tried.param.code);
                         });

}  // namespace
