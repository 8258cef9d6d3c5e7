#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <thread>

#include "posix/whole_output.h"
#include "simulator/control/control_socket.h"
#include "simulator/control/streams.h"
#include "simulator/phonesim/client.h"

namespace simulator {
namespace {

// Returns false if it is lost.
bool Print(const void* bytes, size_t size) {
  return posix::WriteToOutput({static_cast<const char*>(bytes), size});
}

bool Lives(const PhoneRequest& journal) {
  pollfd polled = {journal.Socket().Get(), 0, 0};
  poll(&polled, 1, 0);
  return (polled.revents & (POLLHUP | POLLERR)) == 0;
}

// The head of a WAV stream without a known end.
struct StreamHead {
  char riff[4] = {'R', 'I', 'F', 'F'};
  uint32_t riff_bytes = UINT32_MAX;
  char wave[8] = {'W', 'A', 'V', 'E', 'f', 'm', 't', ' '};
  uint32_t format_bytes = 16;
  uint16_t coding = 1;
  uint16_t channels = 0;
  uint32_t sample_rate = 0;
  uint32_t bytes_per_second = 0;
  uint16_t frame_bytes = 0;
  uint16_t sample_bits = 16;
  char data[4] = {'d', 'a', 't', 'a'};
  uint32_t data_bytes = UINT32_MAX;
};
static_assert(sizeof(StreamHead) == 44);

bool PrintHead(const SoundPiece& piece) {
  StreamHead head;
  head.channels = piece.channels;
  head.sample_rate = piece.sample_rate;
  head.frame_bytes = static_cast<uint16_t>(piece.channels * sizeof(int16_t));
  head.bytes_per_second = piece.sample_rate * head.frame_bytes;
  return Print(&head, sizeof head);
}

}  // namespace

int FollowLcd(const std::string& name) {
  constexpr auto PACE = std::chrono::milliseconds(40);
  const PhoneRequest journal(name, {"journal", "--follow", "--last", "0"});  // ends with the phone
  LcdView lcd(name);
  while (Lives(journal)) {
    if (lcd.Look() && !Print(lcd.Pixels().data(), lcd.Pixels().size_bytes()))
      return posix::OUTPUT_LOST_STATUS;
    std::this_thread::sleep_for(PACE);
  }
  return 0;
}

int Listen(const std::string& name) {
  const posix::FileDescriptor sound = ListenTo(name);
  SoundPiece first = {};
  std::vector<uint8_t> message(MOST_SOUND_MESSAGE);
  while (true) {
    const ssize_t size = recv(sound.Get(), message.data(), message.size(), 0);
    if (size <= 0) return 0;
    SoundPiece piece = {};
    const auto samples = SamplesOf({message.data(), static_cast<size_t>(size)}, piece);
    if (first.sample_rate == 0) {
      first = piece;
      if (!PrintHead(piece)) return posix::OUTPUT_LOST_STATUS;
    }
    if (piece.sample_rate != first.sample_rate || piece.channels != first.channels) return 0;
    if (!Print(samples.data(), samples.size() * sizeof(int16_t))) return posix::OUTPUT_LOST_STATUS;
  }
}

}  // namespace simulator
