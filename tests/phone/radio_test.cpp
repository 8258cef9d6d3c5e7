// The FM radio: every mode's requests with their whole records, and what each failure undoes.
#include <fmt/format.h>

#include "simulator/models/radio.h"
#include "tests/phone/processes.h"
#include "tests/phone/sound_lines.h"

namespace {

using simulator::FaultCall;
using simulator::Radio;

constexpr uint32_t RADIO = 0x2C;
constexpr uint32_t SET_FREQUENCY = 0x4004760F, SET_AUDIO = 0x40287611, EXTRA = 0xC0087301,
                   GET_FREQUENCY = 0x8004760E, GET_TUNER = 0xC0347604;
constexpr char DEVICE[] = "/dev/v4l/radio0";

struct Result {
  int32_t status;
  uint32_t frequency, signal;
  bool operator==(const Result&) const = default;
};
std::ostream& operator<<(std::ostream& out, const Result& result) {
  return out << result.status << " " << result.frequency << " " << result.signal;
}

std::string Hex(const Bytes& bytes) {
  std::string text;
  for (uint8_t byte : bytes) text += fmt::format("{:02X}", byte);
  return text;
}

// 40 bytes, all 0 but volume (at 4), flags (at 12, 1 mutes) and mode (at 32, 2 is stereo).
std::string AudioRecord(uint16_t volume) {
  Bytes record(40);
  record[4] = static_cast<uint8_t>(volume);
  record[5] = static_cast<uint8_t>(volume >> 8);
  record[12] = volume == 0 ? 1 : 0;
  record[32] = 2;
  return Hex(record);
}

class RadioTest : public PhoneTest {
 protected:
  RadioTest() {
    Boot();
    EXPECT_TRUE(StillAnswers());  // and has closed what its start opened
    MarkJournal();
    descriptors_ = OpenDescriptors(Phone().ServerProcess());
  }

  Result Command(uint32_t mode, uint32_t frequency, uint32_t volume, uint32_t enable = 0, uint32_t flag = 0) {
    MarkJournal();
    const Bytes answer = Ask(RADIO, Words({mode, frequency, volume, enable, flag}), 12);
    return {StatusOf(answer), WordAt(answer, 4), WordAt(answer, 8)};
  }

  // The lines of an opened radio; the tuner's answer is the driver's business.
  Lines RadioLines() {
    Lines lines = LinesSince();
    for (std::string& line : lines) {
      const size_t answer = line.find(" out 00000000464D");
      if (answer != std::string::npos) line.resize(answer);
    }
    return lines;
  }

  bool IsOpen() {
    return OpenDescriptors(Phone().ServerProcess()) == descriptors_ + 1;
  }
  bool IsClosed() {
    return OpenDescriptors(Phone().ServerProcess()) == descriptors_;
  }

  size_t descriptors_;
};

// All of a session's requests; `extra` is the private request's pair of words, if it is made.
Lines Session(uint32_t frequency, uint16_t volume, const std::string& extra = "") {
  const std::string tuned = Hex(Words({frequency}));
  const auto request = [](uint32_t number, const std::string& way, const std::string& bytes) {
    return fmt::format("request {} 0x{:08X} {} {}", DEVICE, number, way, bytes);
  };
  Lines lines = {fmt::format("open {} rw+cloexec", DEVICE), request(SET_FREQUENCY, "in", tuned),
                 request(SET_FREQUENCY, "in", tuned), request(SET_AUDIO, "in", AudioRecord(volume))};
  if (!extra.empty()) lines.push_back(request(EXTRA, "in", extra));
  return lines + Lines{request(GET_FREQUENCY, "out", tuned), request(GET_TUNER, "in", std::string(104, '0'))};
}

TEST_F(RadioTest, MeasuresOnceAndSwitchesOff) {
  EXPECT_EQ(Command(1, 1464, 0x1234), (Result{SUCCESS, 1464, 58000}));
  EXPECT_EQ(RadioLines(), Session(1464, 0x1234) + AudioLine(LINE_B_OFF));
  EXPECT_TRUE(IsClosed());
  // Volume 0 mutes; the 16 bits count.
  EXPECT_EQ(Command(1, 1626, 0), (Result{SUCCESS, 1626, 32767}));
  EXPECT_EQ(RadioLines(), Session(1626, 0) + AudioLine(LINE_B_OFF));
  EXPECT_EQ(Command(1, 1728, 0x50000), (Result{SUCCESS, 1728, 1200}));
  EXPECT_EQ(RadioLines(), Session(1728, 0) + AudioLine(LINE_B_OFF));
  EXPECT_EQ(Command(1, 1400, 0xFFFFFFFF), (Result{SUCCESS, 1400, 1200}));
  EXPECT_EQ(RadioLines(), Session(1400, 0xFFFF) + AudioLine(LINE_B_OFF));
  // The private request, with its first word the reverse of the flag.
  EXPECT_EQ(Command(1, 1464, 1, 1, 0), (Result{SUCCESS, 1464, 58000}));
  EXPECT_EQ(RadioLines(), Session(1464, 1, "0100000001000000") + AudioLine(LINE_B_OFF));
  EXPECT_EQ(Command(1, 1464, 1, 0x80000000, 0x100), (Result{SUCCESS, 1464, 58000}));
  EXPECT_EQ(RadioLines(), Session(1464, 1, "0000000001000000") + AudioLine(LINE_B_OFF));
  EXPECT_TRUE(IsClosed());
}

TEST_F(RadioTest, PlaysUntilSwitchedOffOrReopened) {
  EXPECT_EQ(Command(0, 1464, 9), (Result{SUCCESS, 0, 0})) << "never opened";
  EXPECT_EQ(LinesSince(), AudioLine(LINE_B_OFF));
  EXPECT_TRUE(IsClosed());
  for (uint32_t frequency : {1464u, 1576u}) {
    EXPECT_EQ(Command(2, frequency, 9, 1, 1).status, SUCCESS);
    EXPECT_EQ(RadioLines(), AudioLine(LINE_B_ON) + Session(frequency, 9))
        << "no private request in this mode";
    EXPECT_TRUE(IsOpen()) << "the one before is closed";
  }
  for (uint32_t mode : {3u, 0xFFFFFFFFu}) {
    EXPECT_EQ(Command(mode, 1512, 9, 1, 1), (Result{SUCCESS, 1512, 12000}));
    EXPECT_EQ(RadioLines(), Session(1512, 9));
    EXPECT_TRUE(IsOpen());
  }
  EXPECT_EQ(Command(1, 1464, 9).status, SUCCESS);
  EXPECT_TRUE(IsClosed());
  EXPECT_EQ(Command(2, 1464, 9).status, SUCCESS);
  EXPECT_EQ(Command(0, 0, 0), (Result{SUCCESS, 0, 0}));
  EXPECT_EQ(LinesSince(), AudioLine(LINE_B_OFF));
  EXPECT_TRUE(IsClosed());
}

TEST_F(RadioTest, SwitchesBackAtEachFailure) {
  struct Case {
    uint32_t request;
    int nth;
    int32_t status;
    size_t lines;  // of the device, the failing one included
    uint32_t frequency;
  };
  const Case cases[] = {
      {SET_FREQUENCY, 1, REQUEST_FAILED, 2, 0},        {SET_FREQUENCY, 2, REQUEST_FAILED, 3, 0},
      {SET_AUDIO, 1, SECOND_REQUEST_FAILED, 4, 0},     {EXTRA, 1, THIRD_REQUEST_FAILED, 5, 0},
      {GET_FREQUENCY, 1, FOURTH_REQUEST_FAILED, 6, 0}, {GET_TUNER, 1, FIFTH_REQUEST_FAILED, 7, 1464},
  };
  for (const Case& c : cases) {
    for (uint32_t mode : {1u, 2u, 3u}) {
      if (c.request == EXTRA && mode != 1) continue;
      Phone().GetFaults().Clear();
      EXPECT_EQ(Command(3, 1576, 9).status, SUCCESS) << "a radio to be closed";
      Phone().GetFaults().FailRequest(DEVICE, c.request, EIO, c.nth, 1);
      EXPECT_EQ(Command(mode, 1464, 9, 1, 0), (Result{c.status, c.frequency, 0}));
      Lines expected = Session(1464, 9, mode == 1 ? "0100000001000000" : "");
      expected.resize(mode == 1 || c.lines < 5 ? c.lines : c.lines - 1);
      expected.back() = fmt::format("request {} 0x{:08X} -> EIO", DEVICE, c.request);
      EXPECT_EQ(RadioLines(), (mode == 2 ? AudioLine(LINE_B_ON) : Lines()) + expected + AudioLine(LINE_B_OFF))
          << "mode " << mode;
      EXPECT_TRUE(IsClosed());
    }
  }
  Phone().GetFaults().Clear();
  for (uint32_t mode : {1u, 2u, 3u}) {
    EXPECT_EQ(Command(2, 1464, 9).status, SUCCESS);
    Phone().TakeAway(DEVICE);
    EXPECT_EQ(Command(mode, 1464, 9, 1, 0), (Result{OPEN_FAILED, 0, 0}));
    EXPECT_EQ(LinesSince(), (mode == 2 ? AudioLine(LINE_B_ON) : Lines()) +
                                Lines{fmt::format("open {} rw+cloexec -> ENOENT", DEVICE)} +
                                AudioLine(LINE_B_OFF));
    EXPECT_TRUE(IsClosed());
    Phone().PutBack(DEVICE);
  }
  EXPECT_EQ(Command(0, 0, 0).status, SUCCESS);
  EXPECT_TRUE(IsClosed());
}

TEST_F(RadioTest, TellsWhatTheDriverTells) {
  EXPECT_EQ(Command(1, 0xFFFFFFFF, 9), (Result{REQUEST_FAILED, 0, 0})) << "outside the tuner's band";
  Phone().With<Radio>([](Radio& radio) { radio.state.writes_nothing = true; });
  EXPECT_EQ(Command(1, 1464, 9), (Result{SUCCESS, 0, 0})) << "a driver that writes nothing leaves 0";
  Phone().With<Radio>([](Radio& radio) { radio.state.writes_nothing = false; });

  EXPECT_EQ(Command(1, 1464, 9).status, SUCCESS);
  EXPECT_EQ(Phone().Command({"radio"}).substr(0, 54),
            "tuned to 91.5 MHz, signal 58000, volume 9, stereo\nstat");
  Phone().Command({"radio", "silence"});
  EXPECT_NE(Phone().Command({"radio", "station", "93.75", "65535"}).find("station 93.75 MHz signal 65535\n"),
            std::string::npos);
  EXPECT_EQ(Command(1, 1464, 9).signal, 1200u);
  EXPECT_EQ(Command(1, 1499, 9).signal, 49151u) << "beside a station";
  EXPECT_EQ(Command(1, 1500, 9).signal, 65535u);
}

}  // namespace
