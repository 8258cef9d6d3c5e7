#include "simulator/models/framebuffer.h"

#include <cstring>

#include "simulator/phone/png_writer.h"

namespace simulator {

std::vector<std::string> Framebuffer::Paths() const {
  return {"/dev/fb/0"};
}

OpenAnswer Framebuffer::Open(const OpenCall& call) {
  // A pipe can be opened but not mapped.
  if (state.refuses_mapping)
    return OpenAnswer::PlainDescriptor(ValuePipe(phone_.loop, call, [](const auto&) {}));
  return OpenAnswer::Descriptor(memory_.Open(call));
}

std::vector<uint16_t> Framebuffer::Pixels() const {
  std::vector<uint16_t> pixels(size_t{WIDTH} * HEIGHT);
  memcpy(pixels.data(), memory_.Bytes(), memory_.Size());
  return pixels;
}

std::string Framebuffer::Png() const {
  return EncodePng(Pixels(), WIDTH, HEIGHT);
}

std::vector<ModelCommand> Framebuffer::Commands() {
  return {{"screenshot", "FILE", "the LCD as a PNG picture",
           [this](const std::vector<std::string>&) { return Png(); }, true}};
}

}  // namespace simulator
