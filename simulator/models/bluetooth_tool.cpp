#include "simulator/models/bluetooth_tool.h"

#include <fmt/format.h>

#include <cerrno>
#include <stdexcept>
#include <system_error>

#include "simulator/phone/device_model.h"
#include "simulator/phone/root_directory.h"

namespace simulator {
namespace {

constexpr const char* TOOL = "/root/bt_cit_test";
constexpr const char* SCENARIOS = "/root/.bt_cit_test";
constexpr const char* PRINTED = "/root/.bt_cit_printed";

// A value follows its switch without a space. A scenario is a file of shell variables named for its function.
// What is printed is kept in a file as well, for those who look at the phone.
constexpr char PROGRAM[] = R"SCRIPT(#!/bin/sh
printed=/root/.bt_cit_printed
say() { printf "$@"; printf "$@" >>$printed; }
usage() {
  say 'bt_cit_test: %s\n' "$1" >&2
  echo "usage: bt_cit_test -f1 -aN -bN -cN | -f2 | -f3 -aN -bN | -f4 -aADDRESS -bLENGTH -cHEX |" >&2
  echo "       -f5 -aADDRESS -bCODE | -f6 -aN | -f7 -aN" >&2
  exit 2
}
number() { case ${1#-} in '' | *[!0-9]*) usage "\"$1\" is not a number" ;; esac; }
hex() {
  case $1 in *[!0-9A-F]*) usage "\"$1\" is not hexadecimal" ;; esac
  [ ${#1} -eq "$2" ] || usage "\"$1\" does not have $2 digits"
}
pairs() { echo "$1" | sed 's/../&:/g;s/:$//'; }

function=$1
[ $# -gt 0 ] && shift
given=
for word; do
  case $word in
  -a*) a=${word#-a} given=${given}a ;;
  -b*) b=${word#-b} given=${given}b ;;
  -c*) c=${word#-c} given=${given}c ;;
  *) usage "unknown switch \"$word\"" ;;
  esac
done
case $function:$given in
-f2:) ;;
-f6:a | -f7:a) number "$a" ;;
-f3:ab) number "$a" && number "$b" ;;
-f1:abc) number "$a" && number "$b" && number "$c" ;;
-f4:abc)
  hex "$a" 12 && number "$b"
  [ "$b" -ge 0 ] && [ "$b" -le 16 ] || usage "\"$b\" is no length"
  hex "$c" $((2 * b))
  ;;
-f5:ab) hex "$a" 12 && { [ ${#b} -ge 1 ] && [ ${#b} -le 4 ] || usage "\"$b\" is no code"; } ;;
*) usage "wrong switches" ;;
esac

status=0 shape=normal delay=0.000
scenario=/root/.bt_cit_test/${function#-}
[ -f "$scenario" ] && . "$scenario"
case $function in
-f1) result= ;;
-f2) result="; ResultA=00:02:5B:0A:FF:10" ;;
-f3) result="; ResultA=$((a + b))" ;;
-f4) result="; ResultA=$b; ResultB=$(pairs "$c")" ;;
-f5)
  codes=
  while [ -n "$b" ]; do
    rest=${b#?}
    codes=$codes:$(printf %02X "'${b%"$rest"}")
    b=$rest
  done
  result="; ResultA=$(pairs "$a")$codes:B0:B1:B2:B3:B4:B5:B6:B7:B8:B9:BA:BB:BC:BD:BE:BF:C0"
  ;;
-f6) result="; ResultA=$a" ;;
-f7) result="; ResultA=00:02:5B:0A:FF:$(printf %02X $((a & 255)))" ;;
esac
result="Status=$status$result"
[ $delay = 0.000 ] || [ $shape = pieces ] || sleep $delay
case $shape in
normal) say '%s\n' "$result" ;;
short) say %.12s "$result" ;;
long) say '%s\n%0300d\n' "$result" 0 ;;
pieces) say %.12s "$result"; sleep $delay; say '%s\n' "${result#????????????}" ;;
output) cat "$scenario.output"; cat "$scenario.output" >>$printed ;;
none) ;;
esac
)SCRIPT";

using Scenario = BluetoothTool::Scenario;
using Shape = Scenario::Shape;

struct ShapeName {
  const char* name;
  Shape shape;
};
constexpr ShapeName SHAPES[] = {{"normal", Shape::Normal},
                                {"short", Shape::Short},
                                {"long", Shape::Long},
                                {"pieces", Shape::Pieces},
                                {"none", Shape::None}};

std::string ScenarioPath(int function) {
  return fmt::format("{}/f{}", SCENARIOS, function);
}

// "slow 1500", "status -7", "output TEXT", or a shape.
Scenario ParseScenario(const std::vector<std::string>& words) {
  Scenario scenario;
  if (words.size() == 2 && words[0] == "slow") {
    scenario.delay = std::chrono::milliseconds(NumberWord(words[1]));
    return scenario;
  }
  if (words.size() == 2 && words[0] == "status") {
    scenario.status = static_cast<int>(NumberWord(words[1]));
    return scenario;
  }
  if (words.size() == 2 && words[0] == "output") {
    scenario.output = words[1];
    return scenario;
  }
  for (const ShapeName& shape : SHAPES) {
    if (words.size() != 1 || words[0] != shape.name) continue;
    scenario.shape = shape.shape;
    return scenario;
  }
  throw std::invalid_argument("The Bluetooth tool has no such scenario; `phonesim commands` shows them.");
}

}  // namespace

std::vector<std::string> BluetoothTool::Paths() const {
  return {TOOL};
}

void BluetoothTool::Furnish(RootDirectory& root) {
  root.PutFile(TOOL, PROGRAM, 0755);
  root.Remove(SCENARIOS);
  root.Remove(PRINTED);
}

int BluetoothTool::Exec(const ExecCall& call) {
  TakePrinted();
  state.calls.push_back({fmt::format("{}", fmt::join(call.arguments, " ")), ""});
  if (state.calls.size() > MOST_CALLS) state.calls.pop_front();
  return 0;
}

void BluetoothTool::TakePrinted() {
  if (state.calls.empty() || !phone_.root.Exists(PRINTED)) return;
  state.calls.back().printed += phone_.root.ReadFile(PRINTED, MOST_PRINTED);
  phone_.root.Remove(PRINTED);
}

const std::deque<BluetoothTool::ToolCall>& BluetoothTool::Calls() {
  TakePrinted();
  return state.calls;
}

void BluetoothTool::SetScenario(int function, const Scenario& scenario) {
  std::string shape = "output";
  for (const ShapeName& known : SHAPES) {
    if (known.shape == scenario.shape && !scenario.output) shape = known.name;
  }
  const std::string path = ScenarioPath(function);
  phone_.root.PutFile(path, fmt::format("status={} shape={} delay={:.3f}\n", scenario.status, shape,
                                        std::chrono::duration<double>(scenario.delay).count()));
  if (scenario.output) phone_.root.PutFile(path + ".output", *scenario.output);
}

void BluetoothTool::SetExecutable(bool executable) {
  phone_.root.SetMode(TOOL, executable ? 0755 : 0644);
}

std::vector<ModelCommand> BluetoothTool::Commands() {
  return {
      {"bluetooth",
       "1..7|all normal|short|long|pieces|none|status N|slow MS|output TEXT, or: executable|not-executable",
       "makes a function of the Bluetooth test tool, or the tool, behave otherwise",
       [this](const std::vector<std::string>& words) { return Command(words); },
       {},
       {{"all", "short"}, {"all", "long"}, {"all", "none"}, {"all", "status", "1"}, {"not-executable"}}}};
}

std::string BluetoothTool::Command(const std::vector<std::string>& words) {
  if (words.size() == 1 && (words[0] == "executable" || words[0] == "not-executable")) {
    SetExecutable(words[0] == "executable");
    return {};
  }
  if (words.size() < 2) throw std::invalid_argument("bluetooth takes a function's number and a scenario.");
  const Scenario scenario = ParseScenario({words.begin() + 1, words.end()});
  if (words[0] == "all") {
    for (int function = 1; function <= FUNCTIONS; ++function) SetScenario(function, scenario);
    return {};
  }
  const int64_t function = NumberWord(words[0]);
  if (function < 1 || function > FUNCTIONS) throw std::invalid_argument("The tool's functions are 1 to 7.");
  SetScenario(static_cast<int>(function), scenario);
  return {};
}

}  // namespace simulator
