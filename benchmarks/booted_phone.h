// A simulated phone that runs the server, or another program instead, and the host's end of the phone's port.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "simulator/simulated_phone.h"
#include "tests/phone/host_line.h"

// Keeps this process and all that it starts on one processor, as on the phone. Otherwise the figures would
// depend on the processor on which the scheduler wakes each process.
void UseOneProcessor();

// A program beside this one.
std::filesystem::path ProgramBeside(const std::string& name);

class BootedPhone {
 public:
  // Returns when the program has come to this line of the journal.
  BootedPhone(const std::filesystem::path& program, const std::vector<std::string>& arguments,
              const std::string& last_line);

  simulator::SimulatedPhone phone;
  HostLine host;

  // Throws if the answer does not come whole.
  Bytes Ask(const Bytes& request, size_t answer_size);

  // Of the program that runs as the server.
  double ProcessorSeconds() const;
  double PeakMemory() const;  // resident bytes
};

// The unmodified server, waiting for commands.
class ServerPhone : public BootedPhone {
 public:
  ServerPhone();
};
