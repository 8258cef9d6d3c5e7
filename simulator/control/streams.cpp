#include "simulator/control/streams.h"

#include <sys/mman.h>

#include <cstring>
#include <stdexcept>
#include <utility>

#include "simulator/control/control_socket.h"

namespace simulator {
namespace {

constexpr size_t LCD_BYTES = size_t{LcdView::WIDTH} * LcdView::HEIGHT * sizeof(uint16_t);

posix::FileDescriptor DescriptorFor(const std::string& phone, const std::string& word) {
  PhoneRequest request(phone, {word});
  Answer answer = request.TakeStatus();
  if (answer.descriptor.IsOpen()) return std::move(answer.descriptor);
  throw std::runtime_error(request.TakeText(std::move(answer)).text);
}

}  // namespace

LcdView::LcdView(const std::string& phone) {
  const posix::FileDescriptor memory = DescriptorFor(phone, "lcd");
  void* mapping = mmap(nullptr, LCD_BYTES, PROT_READ, MAP_SHARED, memory.Get(), 0);
  if (mapping == MAP_FAILED) posix::ThrowErrno("mmap");
  memory_ = mapping;
}

LcdView::~LcdView() {
  munmap(const_cast<void*>(memory_), LCD_BYTES);
}

bool LcdView::Look() {
  if (!pixels_.empty() && memcmp(pixels_.data(), memory_, LCD_BYTES) == 0) return false;
  pixels_.resize(LCD_BYTES / sizeof(uint16_t));
  memcpy(pixels_.data(), memory_, LCD_BYTES);
  return true;
}

posix::FileDescriptor ListenTo(const std::string& phone) {
  return DescriptorFor(phone, "listen");
}

std::vector<int16_t> SamplesOf(std::span<const uint8_t> message, SoundPiece& piece) {
  if (message.size() < sizeof piece) return {};
  memcpy(&piece, message.data(), sizeof piece);
  const std::span<const uint8_t> bytes = message.subspan(sizeof piece);
  std::vector<int16_t> samples;
  if (piece.sample_bits == 8) {
    samples.reserve(bytes.size());
    for (const uint8_t byte : bytes) samples.push_back(static_cast<int16_t>((byte - 128) * 256));
  } else {
    samples.resize(bytes.size() / sizeof(int16_t));
    memcpy(samples.data(), bytes.data(), samples.size() * sizeof(int16_t));
  }
  return samples;
}

}  // namespace simulator
