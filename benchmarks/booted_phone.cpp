#include "benchmarks/booted_phone.h"

#include <sched.h>

#include <fstream>
#include <stdexcept>

namespace {

simulator::PhoneOptions Options(const std::filesystem::path& program,
                                const std::vector<std::string>& arguments) {
  simulator::PhoneOptions options;
  options.server = program;
  options.server_arguments = arguments;
  options.instant_sleeps = true;
  return options;
}

}  // namespace

void UseOneProcessor() {
  cpu_set_t processors;
  CPU_ZERO(&processors);
  CPU_SET(static_cast<unsigned>(sched_getcpu()), &processors);
  sched_setaffinity(0, sizeof processors, &processors);
}

std::filesystem::path ProgramBeside(const std::string& name) {
  return std::filesystem::read_symlink("/proc/self/exe").parent_path() / name;
}

BootedPhone::BootedPhone(const std::filesystem::path& program, const std::vector<std::string>& arguments,
                         const std::string& last_line)
    : phone(Options(program, arguments)) {
  phone.Boot();
  host = HostLine(phone.HostPort());
  if (!phone.GetJournal().WaitFor(simulator::LineIs(last_line)))
    throw std::runtime_error(program.string() + " did not come to: " + last_line);
}

Bytes BootedPhone::Ask(const Bytes& request, size_t answer_size) {
  host.Send(request);
  Bytes answer = host.Receive(answer_size);
  if (answer.size() != answer_size) throw std::runtime_error("the phone's answer came short");
  return answer;
}

double BootedPhone::ProcessorSeconds() const {
  std::ifstream statistics("/proc/" + std::to_string(phone.ServerProcess()) + "/schedstat");
  double nanoseconds = 0;
  statistics >> nanoseconds;
  return nanoseconds * 1e-9;
}

double BootedPhone::PeakMemory() const {
  std::ifstream status("/proc/" + std::to_string(phone.ServerProcess()) + "/status");
  for (std::string word; status >> word;) {
    double kilobytes = 0;
    if (word == "VmHWM:" && status >> kilobytes) return kilobytes * 1024;
  }
  throw std::runtime_error("the server's memory is not told");
}

// The backlight is the last step of the server's start.
ServerPhone::ServerPhone()
    : BootedPhone(ProgramBeside("phonetestd"), {}, "value /proc/backlight/lcd \"0\"") {}
