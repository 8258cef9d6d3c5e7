#include "simulator/phone/wav_file.h"

#include <fcntl.h>
#include <unistd.h>

#include <bit>
#include <cerrno>
#include <system_error>

namespace simulator {
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

WavFile::WavFile(const std::filesystem::path& path, const SoundFormat& format) : format_(format) {
  if (path.has_parent_path()) std::filesystem::create_directories(path.parent_path());
  file_.Reset(open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644));
  if (!file_.IsOpen()) throw std::system_error(errno, std::generic_category(), path);
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
