// Which device an open descriptor of the phone belongs to, by what the descriptor refers to: this holds
// across dup, fork and threads, which numbers do not.
#pragma once

#include <sys/stat.h>

#include <map>
#include <string>
#include <utility>

namespace simulator {

class DeviceModel;

class DescriptorTable {
 public:
  struct Device {
    DeviceModel* model;
    std::string path;
  };

  void Add(const struct stat& status, Device device) {
    devices_[{status.st_dev, status.st_ino}] = std::move(device);
  }
  const Device* Find(const struct stat& status) const {
    const auto found = devices_.find({status.st_dev, status.st_ino});
    return found == devices_.end() ? nullptr : &found->second;
  }

 private:
  std::map<std::pair<dev_t, ino_t>, Device> devices_;
};

}  // namespace simulator
