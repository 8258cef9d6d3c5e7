// A control of a driver that shows as a text file under /proc: it gives its value when it is read and takes a
// value with each write.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "simulator/phone/device_model.h"

namespace simulator {

class TextControl {
 public:
  TextControl(PhoneServices& phone, std::string path, std::string initial)
      : phone_(phone), path_(std::move(path)), value_(std::move(initial)) {}

  const std::string& Path() const {
    return path_;
  }
  // The value written last, without white space around it.
  const std::string& Value() const {
    return value_;
  }
  void SetValue(std::string value) {
    value_ = std::move(value);
  }
  const std::vector<std::string>& Written() const {
    return written_;
  }

  OpenAnswer Open(const OpenCall& call);

 private:
  void Take(std::string text);

  PhoneServices& phone_;
  std::string path_;
  std::string value_;
  std::vector<std::string> written_;
};

// A device that is nothing but such controls.
class TextDevice : public DeviceModel {
 public:
  struct Row {
    std::string path;
    std::string initial;
  };

  TextDevice(PhoneServices& phone, const std::vector<Row>& rows);

  std::vector<std::string> Paths() const override;
  OpenAnswer Open(const OpenCall& call) override;
  TextControl& Control(const std::string& path);

 private:
  std::vector<TextControl> controls_;
};

}  // namespace simulator
