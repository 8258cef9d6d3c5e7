#include "simulator/phone/text_control.h"

#include <stdexcept>

#include "simulator/phone/journal.h"
#include "simulator/supervisor/device_descriptors.h"

namespace simulator {

OpenAnswer TextControl::Open(const OpenCall& call) {
  const auto take = [this](std::string text) { Take(std::move(text)); };
  const std::string text = value_ + "\n";
  if (!call.Writes()) return OpenAnswer::PlainDescriptor(TextSnapshot(text));
  if (!call.Reads()) return OpenAnswer::PlainDescriptor(ValuePipe(phone_.loop, call, take));
  return OpenAnswer::PlainDescriptor(ValueSocket(phone_.loop, call, text, take));
}

void TextControl::Take(std::string text) {
  static constexpr const char* WHITE_SPACE = " \t\r\n";
  phone_.journal.Add({.kind = JournalKind::Value, .path = path_, .text = text});
  text.erase(text.find_last_not_of(WHITE_SPACE) + 1);
  text.erase(0, text.find_first_not_of(WHITE_SPACE));
  value_ = text;
  written_.push_back(std::move(text));
}

TextDevice::TextDevice(PhoneServices& phone, const std::vector<Row>& rows) : DeviceModel(phone) {
  for (const Row& row : rows) controls_.emplace_back(phone, row.path, row.initial);
}

std::vector<std::string> TextDevice::Paths() const {
  std::vector<std::string> paths;
  for (const TextControl& control : controls_) paths.push_back(control.Path());
  return paths;
}

OpenAnswer TextDevice::Open(const OpenCall& call) {
  return Control(call.path).Open(call);
}

TextControl& TextDevice::Control(const std::string& path) {
  for (TextControl& control : controls_) {
    if (control.Path() == path) return control;
  }
  throw std::invalid_argument("the device has no control " + path);
}

}  // namespace simulator
