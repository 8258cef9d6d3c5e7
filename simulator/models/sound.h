// The sound device, and the files that record what it plays.
#pragma once

#include <chrono>
#include <cstdint>
#include <deque>
#include <filesystem>
#include <list>
#include <map>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "posix/file_descriptor.h"
#include "simulator/control/streams.h"
#include "simulator/phone/device_descriptors.h"
#include "simulator/phone/device_model.h"
#include "simulator/phone/poll_loop.h"

namespace simulator {

struct SoundFormat {
  uint32_t sample_rate = 8000;  // Hz
  uint16_t channels = 1;
  uint16_t sample_bits = 8;

  uint32_t FrameBytes() const {
    return channels * sample_bits / 8U;
  }
  uint32_t BytesPerSecond() const {
    return sample_rate * FrameBytes();
  }
};

// A WAV file (RIFF, plain PCM) that grows: whole and playable after every piece.
class WavFile {
 public:
  // `file` is empty and open for writing. Throws std::system_error, as Append does.
  WavFile(posix::FileDescriptor file, const SoundFormat& format);
  void Append(std::span<const uint8_t> samples);
  uint32_t SoundBytes() const {
    return sound_bytes_;
  }

 private:
  void WriteHeader();

  SoundFormat format_;
  posix::FileDescriptor file_;
  uint32_t sound_bytes_ = 0;
};

// Emulates the sound driver: the PCM output /dev/sound/dsp, the mixer /dev/sound/mixer, and the driver's
// private controls on both. What is played drains at the pace of its format and is recorded, each opening of
// the device that plays into a WAV file of its own.
class Sound : public DeviceModel {
 public:
  struct State {
    bool paced = true;     // false: what is written is drained as fast as it comes
    bool stalled = false;  // the device takes nothing more, so its writer waits
    SoundFormat format;    // of the PCM device; each opening goes back to 8 kHz, mono, 8 bits
    int32_t pcm_volume = 0;
    std::map<uint32_t, std::vector<uint8_t>> controls;  // the last argument of each private control
  };
  struct Recording {
    std::filesystem::path file;
    SoundFormat format;
    uint32_t bytes;
  };

  using DeviceModel::DeviceModel;
  std::vector<std::string> Paths() const override;
  void Furnish(RootDirectory& root) override;
  OpenAnswer Open(const OpenCall& call) override;
  RequestAnswer Request(DriverRequest& request) override;
  std::vector<ModelCommand> Commands() override;

  void SetStalled(bool stalled);
  // Openings of the PCM device that have not been closed, by all programs together.
  size_t OpenStreams() const {
    return streams_.size();
  }
  // A socket from which whatever is played comes as it is played: messages of a SoundPiece and samples. A
  // listener that is too slow misses some; one that closes its end is forgotten.
  posix::FileDescriptor Listen();
  // The newest recordings, oldest first. They grow while they play.
  std::vector<Recording> Recordings() const;

  State state;

 private:
  struct Stream {
    posix::FileDescriptor samples;
    std::shared_ptr<const bool> opening = std::make_shared<const bool>();  // ends with the stream
    PollLoop::Id watch = 0;
    std::optional<SoundFormat> format;  // as it was set when the first samples came
    std::chrono::steady_clock::time_point played_until{};
    std::unique_ptr<WavFile> record;
    std::shared_ptr<Recording> recording;
    bool recorded = true;
  };
  using StreamPlace = std::list<Stream>::iterator;

  OpenAnswer OpenPcm(const OpenCall& call);
  void Drain(StreamPlace stream);
  void Pause(StreamPlace stream, size_t bytes);
  void Record(Stream& stream, std::span<const uint8_t> samples);
  void Tell(const Stream& stream, std::span<const uint8_t> samples);
  void KeepRecording(std::shared_ptr<Recording> recording);
  RequestAnswer SetFormat(DriverRequest& request);
  std::string List() const;
  std::string Command(const std::vector<std::string>& words);

  DeviceMemory mixer_{0};
  std::list<Stream> streams_;
  std::list<posix::FileDescriptor> listeners_;
  std::deque<std::shared_ptr<Recording>> recordings_;
  unsigned recording_count_ = 0;
};

}  // namespace simulator
