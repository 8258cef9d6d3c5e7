// What persons and scripts say to the simulated phone: fault rules, and requests on the control socket.
#include <stdexcept>

#include "simulator/control/control_socket.h"
#include "simulator/simulated_phone.h"
#include "tests/fuzz/target.h"

namespace {

using namespace simulator;

void TryFaultRule(Input input) {
  try {
    Faults faults;
    const FaultRule rule = ParseFaultRule(WordsOf(input.Line()));
    faults.Add(rule);
    const std::string path = input.Line();
    for (int call = 0; call < 3; ++call) faults.Strike(rule.call, path, input.Word());
    std::chrono::duration_cast<std::chrono::nanoseconds>(rule.delay);
  } catch (const std::invalid_argument&) {
  }
}

// A phone that was never switched on takes the commands of its models too.
void TryControlRequest(Input input) {
  static SimulatedPhone phone({});
  const std::vector<std::string> words = WordsOf(input.Text());
  if (words.empty()) return;
  try {
    phone.Command(words);
  } catch (const std::invalid_argument&) {
  }
  phone.GetFaults().Clear();
}

const bool added = AddTargets({{"fault_rules", TryFaultRule}, {"control_requests", TryControlRequest}});

}  // namespace
