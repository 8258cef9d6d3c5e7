#include "simulator/models/modem_at_port.h"

#include <fcntl.h>
#include <fmt/format.h>

#include <algorithm>
#include <cctype>
#include <stdexcept>

#include "simulator/phone/device_model.h"
#include "simulator/phone/journal.h"

namespace simulator {
namespace {

constexpr const char* PATH = "/dev/csmi_tty/6";
// Of the range that is given to test equipment; the last digit is the check digit.
constexpr const char* EQUIPMENT_IDENTITY = "004999010640000";
// 3GPP TS 27.007, 9.2.
constexpr unsigned SIM_NOT_INSERTED = 10;

std::string LowerCase(std::string text) {
  std::ranges::transform(text, text.begin(), [](unsigned char character) { return std::tolower(character); });
  return text;
}

bool OnWord(const std::string& word) {
  if (word != "on" && word != "off") throw std::invalid_argument("\"" + word + "\" is neither on nor off.");
  return word == "on";
}

const char* OnText(bool on) {
  return on ? "on" : "off";
}

}  // namespace

ModemAtPort::ModemAtPort(PhoneServices& phone)
    : DeviceModel(phone), line_(phone.loop, [this](std::string_view bytes) { Take(bytes); }) {}

std::vector<std::string> ModemAtPort::Paths() const {
  return {PATH};
}

OpenAnswer ModemAtPort::Open(const OpenCall& call) {
  OpenCall narrowed = call;
  if (state.fails_reads) narrowed.flags = (call.flags & ~O_ACCMODE) | O_WRONLY;
  if (state.fails_writes) narrowed.flags = (call.flags & ~O_ACCMODE) | O_RDONLY;
  return OpenAnswer::DescriptorOf(line_.Plugged(), line_.Open(narrowed));
}

// A command line ends at a carriage return. Line feeds are ignored.
void ModemAtPort::Take(std::string_view bytes) {
  phone_.journal.Add({.kind = JournalKind::Value, .path = PATH, .text = std::string(bytes)});
  for (const char character : bytes) {
    if (character == '\n') continue;
    if (character != '\r') {
      command_ += character;
      continue;
    }
    const std::string command = std::exchange(command_, {});
    if (command.empty()) continue;
    NoteLine(true, command);
    Answer(command);
  }
}

void ModemAtPort::Send(const std::string& bytes) {
  NoteLine(false, bytes);
  line_.Send(bytes);
}

void ModemAtPort::NoteLine(bool from_phone, std::string text) {
  state.lines.push_back({from_phone, std::move(text)});
  if (state.lines.size() > MOST_LINES) state.lines.pop_front();
}

void ModemAtPort::Answer(const std::string& command) {
  if (state.hangs_up) return line_.HangUp();
  if (state.silent) return;
  if (const auto script = state.scripts.find(command); script != state.scripts.end()) {
    return Send(script->second);
  }
  const std::string lower = LowerCase(command);
  // A modem skips what stands before the prefix (ITU-T V.250, 5.2.1); without it, all of the line is noise.
  const size_t prefix = lower.find("at");
  if (prefix == std::string::npos) return;
  const Result result = Execute(lower.substr(prefix));
  std::string answer = state.before_answer;
  if (state.surplus != 0) answer += fmt::format("\r\n{:x<{}}\r\n", "", state.surplus);
  if (!result.information.empty()) answer += fmt::format("\r\n{}\r\n", result.information);
  Send(InPieces(answer + fmt::format("\r\n{}\r\n", result.final_result)));
}

ModemAtPort::Result ModemAtPort::Execute(const std::string& command) {
  if (command == "at") return {};
  if (command == "at+cmee?") return {fmt::format("+CMEE: {}", error_report_)};
  if (command.starts_with("at+cmee=") && command.size() == 9 && command[8] >= '0' && command[8] <= '2') {
    error_report_ = static_cast<unsigned>(command[8] - '0');
    return {};
  }
  if (command == "at+cpin?") {
    return state.sim_inserted ? Result{"+CPIN: READY"} : Failure(SIM_NOT_INSERTED, "SIM not inserted");
  }
  if (command == "at+cgsn") return {EQUIPMENT_IDENTITY};
  if (command == "at+csq") return {fmt::format("+CSQ: {},99", state.signal)};
  return {{}, "ERROR"};
}

ModemAtPort::Result ModemAtPort::Failure(unsigned number, const char* text) const {
  if (error_report_ == 0) return {{}, "ERROR"};
  return {{},
          error_report_ == 1 ? fmt::format("+CME ERROR: {}", number) : fmt::format("+CME ERROR: {}", text)};
}

std::vector<ModemAtPort::Piece> ModemAtPort::InPieces(const std::string& answer) const {
  const size_t size = state.piece_size == 0 ? answer.size() : state.piece_size;
  std::vector<Piece> pieces;
  for (size_t place = 0; place < answer.size(); place += size) {
    pieces.push_back({state.pause, answer.substr(place, size)});
  }
  return pieces;
}

void ModemAtPort::Send(const std::vector<Piece>& pieces) {
  std::chrono::milliseconds delay{0};
  for (const Piece& piece : pieces) {
    delay += piece.pause;
    if (delay.count() == 0) {
      Send(piece.bytes);
    } else {
      phone_.loop.After(delay, [this, bytes = piece.bytes] { Send(bytes); });
    }
  }
}

std::vector<ModelCommand> ModemAtPort::Commands() {
  return {{"modem",
           "[sim on|off | signal N | silent on|off | hangs-up on|off | pieces BYTES MS | surplus BYTES | "
           "garbage TEXT | answer COMMAND TEXT]",
           "shows the modem, or makes it behave otherwise",
           [this](const std::vector<std::string>& words) { return words.empty() ? Show() : Set(words); },
           {},
           {{"sim", "off"},
            {"signal", "0"},
            {"silent", "on"},
            {"hangs-up", "on"},
            {"pieces", "1", "10"},
            {"surplus", "300"},
            {"garbage", "noise"},
            {"answer", "AT+CGSN", "ERROR"}}}};
}

std::string ModemAtPort::Show() const {
  std::string text =
      fmt::format("sim {}\nsignal {}\nsilent {}\nhangs-up {}\npieces {} {}\nsurplus {}\ngarbage {}\n",
                  OnText(state.sim_inserted), state.signal, OnText(state.silent), OnText(state.hangs_up),
                  state.piece_size, state.pause.count(), state.surplus, state.before_answer);
  for (const auto& [command, pieces] : state.scripts) text += fmt::format("answers {} otherwise\n", command);
  return text;
}

std::string ModemAtPort::Set(const std::vector<std::string>& words) {
  const std::string& what = words[0];
  const size_t values = words.size() - 1;
  if (values == 1 && what == "sim") {
    state.sim_inserted = OnWord(words[1]);
  } else if (values == 1 && what == "signal") {
    state.signal = static_cast<unsigned>(NumberWord(words[1]));
  } else if (values == 1 && what == "silent") {
    state.silent = OnWord(words[1]);
  } else if (values == 1 && what == "hangs-up") {
    state.hangs_up = OnWord(words[1]);
  } else if (values == 2 && what == "pieces") {
    state.piece_size = static_cast<size_t>(NumberWord(words[1]));
    state.pause = std::chrono::milliseconds(NumberWord(words[2]));
  } else if (values == 1 && what == "surplus") {
    state.surplus = static_cast<size_t>(NumberWord(words[1]));
  } else if (values <= 1 && what == "garbage") {
    state.before_answer = values == 0 ? std::string() : words[1];
  } else if (values == 2 && what == "answer") {
    state.scripts[words[1]] = {{std::chrono::milliseconds(0), fmt::format("\r\n{}\r\n", words[2])}};
  } else {
    throw std::invalid_argument("The modem has no such switch; `phonesim commands` shows them.");
  }
  return Show();
}

}  // namespace simulator
