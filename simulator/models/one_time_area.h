// The one-time-programmable flash partition: NOR cells, of which programming can only clear bits and that no
// eraser sets again. The partition's file takes what is written; the model then takes back the bits that the
// write could not have set. It counts the programmings, so that a second one is seen.
#pragma once

#include <string>
#include <vector>

#include "simulator/phone/device_model.h"

namespace simulator {

class OneTimeArea : public DeviceModel {
 public:
  struct State {
    std::string cells;     // what the partition holds
    int programmings = 0;  // writes, those that changed nothing too
    int lost_bits = 0;     // that writes wanted set where they were cleared
  };

  using DeviceModel::DeviceModel;
  ~OneTimeArea() override;
  std::vector<std::string> Paths() const override;
  void Furnish(RootDirectory& root) override;
  OpenAnswer Open(const OpenCall& call) override;
  std::vector<ModelCommand> Commands() override;

  // As it is now, with all that has been written.
  const State& Settled();
  // A new part in the phone.
  void MakeBlank();

 private:
  std::string File() const;
  bool TakeWrites();
  void WriteCells();

  State state_;
  posix::FileDescriptor writes_;  // tells of each
};

}  // namespace simulator
