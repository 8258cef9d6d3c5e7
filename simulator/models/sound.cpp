#include "simulator/models/sound.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/socket.h>
#include <sys/uio.h>
#include <unistd.h>

#include <algorithm>
#include <bit>
#include <cerrno>
#include <cstring>
#include <exception>
#include <stdexcept>
#include <system_error>

#include "posix/whole_output.h"
#include "simulator/phone/journal.h"
#include "simulator/phone/root_directory.h"

namespace simulator {

namespace {

constexpr char PCM[] = "/dev/sound/dsp";
constexpr char RECORDINGS[] = "/var/recordings";
constexpr char MIXER[] = "/dev/sound/mixer";

// Open Sound System, each with an int that the driver writes back.
constexpr uint32_t DSP_SPEED = 0xC0045002;
constexpr uint32_t DSP_SETFMT = 0xC0045005;
constexpr uint32_t DSP_CHANNELS = 0xC0045006;
constexpr uint32_t MIXER_WRITE_PCM = 0xC0044D04;

// The driver's private controls carry no size; these are the bytes that it takes from the address, and the
// values, low byte first, that mean something to it.
struct Control {
  uint32_t number;
  size_t bytes;
  bool (*takes)(uint32_t value);
};
constexpr Control CONTROLS[] = {
    {0x2242, 1, [](uint32_t off) { return off <= 1; }},
    {0x2244, 4, [](uint32_t mode) { return mode == 15 || mode == 48 || mode == 768; }},
    {0x2245, 4, [](uint32_t level) { return level <= 255; }},
    {0x2246, 4, [](uint32_t route) { return (route & 0xFF) <= 3 && (route >> 8 & 0xFF) <= 3; }},
    {0x2248, 2, [](uint32_t gain) { return (gain & 0xFF) <= 1; }},
    {0x2252, 4, [](uint32_t output) { return output <= 3; }},
    {0x2271, 4, [](uint32_t selected) { return selected <= 1; }},
    {0x2280, 4, [](uint32_t source) { return source <= 1 || source == 0x404; }},
};

// What the codec's clock can be divided to, in Hz.
constexpr int32_t RATES[] = {8000, 11025, 12000, 16000, 22050, 24000, 32000, 44100, 48000};

constexpr int STEPS_PER_SECOND = 50;  // in which a paced stream is drained
constexpr size_t UNPACED_STEP = 1 << 16;
constexpr size_t KEPT_RECORDINGS = 32;
constexpr uint64_t MOST_RECORDED = 256U
                                   << 20;  // bytes of all but the newest: they count as the phone's files
constexpr uint32_t LONGEST_RECORDING = 256U << 20;  // 25 minutes of 44.1 kHz, stereo, 16 bits

std::string PhonePath(const Sound::Recording& recording) {
  return std::filesystem::path(RECORDINGS) / recording.file.filename();
}

double Seconds(const Sound::Recording& recording) {
  return static_cast<double>(recording.bytes) / recording.format.BytesPerSecond();
}

}  // namespace

std::vector<std::string> Sound::Paths() const {
  return {PCM, MIXER};
}

void Sound::Furnish(RootDirectory& root) {
  root.Remove(RECORDINGS);
  root.MakeDirectory(RECORDINGS);
}

OpenAnswer Sound::Open(const OpenCall& call) {
  return call.path == PCM ? OpenPcm(call) : OpenAnswer::Descriptor(mixer_.Open(call));
}

OpenAnswer Sound::OpenPcm(const OpenCall& call) {
  if (call.Reads()) return OpenAnswer::Refusal(ENODEV);  // there is no microphone
  int ends[2];
  if (pipe2(ends, O_CLOEXEC) != 0) return OpenAnswer::Refusal(errno);
  fcntl(ends[0], F_SETFL, O_NONBLOCK);
  fcntl(ends[1], F_SETFL, call.flags & O_NONBLOCK);
  state.format = {};
  const StreamPlace stream = streams_.emplace(streams_.end());
  stream->samples.Reset(ends[0]);
  // Early, so that a device that has been closed is known to be so by the time of the caller's next call.
  stream->watch = phone_.loop.Watch(
      ends[0], state.stalled ? 0 : POLLIN, [this, stream](short) { Drain(stream); }, PollLoop::Turn::Value);
  return OpenAnswer::DescriptorOf(stream->opening, posix::FileDescriptor(ends[1]));
}

void Sound::Drain(StreamPlace stream) {
  if (!stream->format) stream->format = state.format;
  const size_t step = state.paced ? stream->format->BytesPerSecond() / STEPS_PER_SECOND : UNPACED_STEP;
  std::vector<uint8_t> samples(step);
  const ssize_t size = read(stream->samples.Get(), samples.data(), samples.size());
  if (size < 0) return;
  if (size == 0) {
    phone_.loop.Unwatch(stream->watch);
    streams_.erase(stream);
    return;
  }
  samples.resize(static_cast<size_t>(size));
  Record(*stream, samples);
  Tell(*stream, samples);
  if (state.paced) Pause(stream, samples.size());
}

// Takes nothing more from the stream until what was taken has been played.
void Sound::Pause(StreamPlace stream, size_t bytes) {
  const auto now = std::chrono::steady_clock::now();
  const std::chrono::duration<double> length(static_cast<double>(bytes) / stream->format->BytesPerSecond());
  stream->played_until =
      std::max(stream->played_until, now) + std::chrono::duration_cast<std::chrono::nanoseconds>(length);
  phone_.loop.SetEvents(stream->watch, 0);
  phone_.loop.After(stream->played_until - now, [this, watch = stream->watch] {
    if (!state.stalled) phone_.loop.SetEvents(watch, POLLIN);
  });
}

void Sound::Record(Stream& stream, std::span<const uint8_t> samples) {
  if (!stream.recorded) return;
  try {
    if (!stream.record) {
      const std::string path = fmt::format("{}/sound-{:04}.wav", RECORDINGS, ++recording_count_);
      posix::FileDescriptor file = phone_.root.Open(path, O_WRONLY | O_CREAT | O_EXCL, 0644);
      if (!file.IsOpen()) posix::ThrowErrno(path);
      stream.record = std::make_unique<WavFile>(std::move(file), *stream.format);
      stream.recording = std::make_shared<Recording>(Recording{phone_.root.Outside(path), *stream.format, 0});
      KeepRecording(stream.recording);
    }
    stream.record->Append(samples);
    stream.recording->bytes = stream.record->SoundBytes();
    stream.recorded = stream.record->SoundBytes() < LONGEST_RECORDING;
  } catch (const std::exception& failure) {
    stream.recorded = false;
    phone_.journal.Add({.text = fmt::format("sound is not recorded any more: {}", failure.what())});
  }
}

posix::FileDescriptor Sound::Listen() {
  posix::Connection sockets = posix::MakeSocketPair(SOCK_SEQPACKET);
  if (!sockets) posix::ThrowErrno("socket");
  listeners_.push_back(std::move(sockets.writing));
  return std::move(sockets.reading);
}

void Sound::Tell(const Stream& stream, std::span<const uint8_t> samples) {
  if (listeners_.empty()) return;
  SoundPiece piece = {stream.format->sample_rate, stream.format->channels, stream.format->sample_bits};
  iovec parts[] = {{&piece, sizeof piece}, {const_cast<uint8_t*>(samples.data()), samples.size()}};
  msghdr message = {};
  message.msg_iov = parts;
  message.msg_iovlen = std::size(parts);
  std::erase_if(listeners_, [&](const posix::FileDescriptor& listener) {
    return sendmsg(listener.Get(), &message, MSG_DONTWAIT | MSG_NOSIGNAL) < 0 && errno != EAGAIN &&
           errno != ENOBUFS;
  });
}

void Sound::KeepRecording(std::shared_ptr<Recording> recording) {
  uint64_t bytes = 0;
  for (const auto& kept : recordings_) bytes += kept->bytes;
  while (recordings_.size() >= KEPT_RECORDINGS || bytes > MOST_RECORDED) {
    bytes -= recordings_.front()->bytes;
    phone_.root.Remove(PhonePath(*recordings_.front()));
    recordings_.pop_front();
  }
  recordings_.push_back(std::move(recording));
}

std::vector<Sound::Recording> Sound::Recordings() const {
  std::vector<Recording> recordings;
  for (const auto& recording : recordings_) recordings.push_back(*recording);
  return recordings;
}

void Sound::SetStalled(bool stalled) {
  state.stalled = stalled;
  for (const Stream& stream : streams_) phone_.loop.SetEvents(stream.watch, stalled ? 0 : POLLIN);
}

RequestAnswer Sound::Request(DriverRequest& request) {
  for (const Control& control : CONTROLS) {
    if (control.number != request.number) continue;
    std::vector<uint8_t> argument(control.bytes);
    if (!request.Read(argument.data(), argument.size())) return RequestAnswer::Refusal(EFAULT);
    uint32_t value = 0;
    memcpy(&value, argument.data(), argument.size());
    if (!control.takes(value)) return RequestAnswer::Refusal(EINVAL);
    state.controls[control.number] = argument;
    return RequestAnswer::Success();
  }
  if (request.path == PCM) return SetFormat(request);
  if (request.number != MIXER_WRITE_PCM) return RequestAnswer::Refusal(EINVAL);
  const auto volume = request.ReadRecord<int32_t>();
  if (!volume || !request.WriteRecord(*volume)) return RequestAnswer::Refusal(EFAULT);
  state.pcm_volume = *volume;
  return RequestAnswer::Success();
}

RequestAnswer Sound::SetFormat(DriverRequest& request) {
  const auto value = request.ReadRecord<int32_t>();
  if (!value) return RequestAnswer::Refusal(EFAULT);
  if (request.number == DSP_CHANNELS && (*value == 1 || *value == 2)) {
    state.format.channels = static_cast<uint16_t>(*value);
  } else if (request.number == DSP_SPEED && std::ranges::find(RATES, *value) != std::end(RATES)) {
    state.format.sample_rate = static_cast<uint32_t>(*value);
  } else if (request.number == DSP_SETFMT && (*value == 8 || *value == 16)) {
    state.format.sample_bits = static_cast<uint16_t>(*value);  // AFMT_U8 and AFMT_S16_LE
  } else {
    return RequestAnswer::Refusal(EINVAL);
  }
  return request.WriteRecord(*value) ? RequestAnswer::Success() : RequestAnswer::Refusal(EFAULT);
}

std::vector<ModelCommand> Sound::Commands() {
  return {{"sound", "[save FILE [NUMBER] | fast | paced]",
           "lists what was played, saves a recording (the last one), or drains the device at once or at pace",
           [this](const std::vector<std::string>& words) { return Command(words); },
           FileWord{FileWord::Opener::Phone, 1, "save"}}};
}

std::string Sound::List() const {
  std::string list;
  for (const Recording& recording : Recordings()) {
    list +=
        fmt::format("{} {:.2f} s, {} Hz, {} channels, {} bits\n", recording.file.string(), Seconds(recording),
                    recording.format.sample_rate, recording.format.channels, recording.format.sample_bits);
  }
  return list + fmt::format("{} open, PCM volume {}\n", streams_.size(), state.pcm_volume);
}

std::string Sound::Command(const std::vector<std::string>& words) {
  if (words.empty()) return List();
  if (words.size() == 1 && (words[0] == "fast" || words[0] == "paced")) {
    state.paced = words[0] == "paced";
    return "";
  }
  if (words[0] != "save" || words.size() < 2 || words.size() > 3) {
    throw std::invalid_argument("sound takes save FILE [NUMBER], fast, paced or nothing.");
  }
  if (recordings_.empty()) throw std::invalid_argument("Nothing has been played yet.");
  const std::string name = words.size() == 3 ? fmt::format("sound-{:0>4}.wav", words[2])
                                             : recordings_.back()->file.filename().string();
  for (const Recording& recording : Recordings()) {
    if (recording.file.filename() != name) continue;
    const std::string lost =
        posix::WriteWholeFile(words[1], phone_.root.ReadFile(PhonePath(recording), LONGEST_RECORDING + 100));
    if (!lost.empty()) throw posix::OutputLost(lost);
    return fmt::format("{} written, {:.2f} s\n", words[1], Seconds(recording));
  }
  throw std::invalid_argument(fmt::format("There is no recording {}.", words[2]));
}

namespace {

// The chunks of a canonical WAV file. Their words are little-endian, as this machine's are.
static_assert(std::endian::native == std::endian::little);
struct WavHeader {
  char riff[4] = {'R', 'I', 'F', 'F'};
  uint32_t riff_bytes;  // all that follows this word
  char wave[4] = {'W', 'A', 'V', 'E'};
  char format[4] = {'f', 'm', 't', ' '};
  uint32_t format_bytes = 16;
  uint16_t coding = 1;  // PCM
  uint16_t channels;
  uint32_t sample_rate;
  uint32_t bytes_per_second;
  uint16_t frame_bytes;
  uint16_t sample_bits;
  char data[4] = {'d', 'a', 't', 'a'};
  uint32_t data_bytes;
};
static_assert(sizeof(WavHeader) == 44);

void WriteAt(int file, const void* bytes, size_t size, int64_t offset) {
  const auto* next = static_cast<const char*>(bytes);
  while (size > 0) {
    const ssize_t written = pwrite(file, next, size, offset);
    if (written < 0) throw std::system_error(errno, std::generic_category(), "WAV file");
    next += written;
    offset += written;
    size -= static_cast<size_t>(written);
  }
}

}  // namespace

WavFile::WavFile(posix::FileDescriptor file, const SoundFormat& format)
    : format_(format), file_(std::move(file)) {
  WriteHeader();
}

void WavFile::Append(std::span<const uint8_t> samples) {
  WriteAt(file_.Get(), samples.data(), samples.size(), int64_t{sizeof(WavHeader)} + sound_bytes_);
  sound_bytes_ += static_cast<uint32_t>(samples.size());
  WriteHeader();
}

void WavFile::WriteHeader() {
  WavHeader header = {};
  header.riff_bytes = static_cast<uint32_t>(sizeof header - offsetof(WavHeader, wave)) + sound_bytes_;
  header.channels = format_.channels;
  header.sample_rate = format_.sample_rate;
  header.bytes_per_second = format_.BytesPerSecond();
  header.frame_bytes = static_cast<uint16_t>(format_.FrameBytes());
  header.sample_bits = format_.sample_bits;
  header.data_bytes = sound_bytes_;
  WriteAt(file_.Get(), &header, sizeof header, 0);
}

}  // namespace simulator
