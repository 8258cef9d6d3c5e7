#include "simulator/phonesim/client.h"

#include <fmt/format.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <optional>
#include <sstream>
#include <stdexcept>
#include <thread>
#include <utility>

#include "posix/whole_output.h"
#include "simulator/control/control_socket.h"
#include "simulator/phonesim/terminal.h"

namespace simulator {
namespace {

void TellLostLines(const std::string& sentences) {
  std::istringstream lines(sentences);
  for (std::string line; std::getline(lines, line);) posix::TellLostOutput(line);
}

int Show(const Answer& answer) {
  if (answer.output_lost) {
    TellLostLines(answer.text);
    return posix::OUTPUT_LOST_STATUS;
  }
  if (answer.good) posix::PrintText(answer.text);
  if (!answer.good) fmt::print(stderr, "{}", answer.text);
  return answer.good ? 0 : 1;
}

Answer Ask(const std::string& name, const std::vector<std::string>& words,
           const posix::Deadline& deadline = posix::Deadline(CONTROL_TIME_OUT)) {
  return PhoneRequest(name, words, deadline).TakeAnswer();
}

struct PhoneAnswer {
  std::string name;
  Answer answer;
};

// Asks every running phone at once: one that hangs delays the others by no more than the time-out of one
// request.
std::vector<PhoneAnswer> AskAll(const std::vector<std::string>& words) {
  const std::vector<std::string> names = RunningPhones();
  std::vector<PhoneRequest> requests;
  for (const std::string& name : names) requests.emplace_back(name, words);
  std::vector<PhoneAnswer> answers;
  for (size_t index = 0; index < names.size(); ++index) {
    if (requests[index].IsRefused()) continue;  // it has ended meanwhile
    answers.push_back({names[index], requests[index].TakeAnswer()});
  }
  return answers;
}

struct NamedFile {
  bool is_callers = false;  // the answer is its content
  size_t place = 0;         // of its path among the words
};

// The phone itself says which word is a file's path.
std::optional<NamedFile> FileNamedIn(const std::string& told) {
  std::istringstream words(told);
  std::string opener;
  NamedFile file;
  if (!(words >> opener >> file.place)) return std::nullopt;
  file.is_callers = opener == FILE_OF_CALLER;
  return file;
}

}  // namespace

std::string PhoneAtPort(const std::string& port) {
  std::error_code error;
  const std::string device = std::filesystem::canonical(port, error).string();
  PhoneRequest request = PhoneRequest::AtPort(device, {"name"});
  if (request.IsRefused()) {
    throw std::runtime_error(fmt::format("No simulated phone has the port {}.", port));
  }
  const Answer answer = request.TakeAnswer();
  if (!answer.good) throw std::runtime_error(answer.text);
  return answer.text;
}

int StopPhone(const std::string& name) {
  // Removing the phone's files takes its time on a busy machine.
  constexpr auto LONGEST_END = std::chrono::seconds(30);
  PhoneRequest request(name, {"stop", "--wait"});
  Answer answer = request.TakeStatus();
  const posix::Deadline deadline(LONGEST_END);
  // A phone in the background has no output of its own: what it could not write is told here.
  answer = request.TakeText(std::move(answer), deadline);
  answer.output_lost = answer.good && !answer.text.empty();
  // The name is free again when the phone is gone.
  while (answer.good && !PhoneRequest(name, {}).IsRefused()) {
    if (deadline.HasPassed()) return Show({false, fmt::format("{}: does not end\n", name), {}});
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  return Show(answer);
}

int RestartPhone(const std::string& name) {
  constexpr auto LONGEST_START = std::chrono::seconds(30);
  const std::vector<std::string> status = {"status", "--json"};
  const std::string before = Ask(name, status).text;
  const Answer answer = Ask(name, {"restart"});
  const posix::Deadline deadline(LONGEST_START);
  while (answer.good) {
    // Process numbers and ports of the phone are new.
    const Answer now = Ask(name, status);
    if (now.good && now.text != before && now.text.find("\"running\":true") != std::string::npos) break;
    if (deadline.HasPassed()) return Show({false, fmt::format("{}: does not start again\n", name), {}});
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }
  return Show(answer);
}

int ShowPhones(bool as_json) {
  if (as_json) {
    std::string list;
    for (const PhoneAnswer& phone : AskAll({"status", "--json"})) {
      if (phone.answer.good) list += (list.empty() ? "\n" : ",\n") + phone.answer.text;
    }
    posix::Print("[{}\n]\n", list);
    return 0;
  }
  for (const PhoneAnswer& phone : AskAll({"status"})) posix::Print("{}", phone.answer.text);
  return 0;
}

int ListNames() {
  for (const std::string& name : RunningPhones()) posix::Print("{}\n", name);
  return 0;
}

int ListPorts() {
  for (const PhoneAnswer& phone : AskAll({"host-port"})) {
    if (phone.answer.good) posix::Print("{}\n", phone.answer.text);
  }
  return 0;
}

int ShellInPhone(const std::string& name) {
  PhoneRequest request(name, {"shell"});
  Answer answer = request.TakeStatus();
  if (!answer.descriptor.IsOpen()) return Show(request.TakeText(std::move(answer)));
  RelayTerminal(answer.descriptor);
  return 0;
}

int ShowJournal(const std::string& name, const JournalWish& wish) {
  std::vector<std::string> words = {"journal"};
  if (wish.follow) words.push_back("--follow");
  if (wish.as_json) words.push_back("--json");
  if (wish.last != 0) words.insert(words.end(), {"--last", std::to_string(wish.last)});
  PhoneRequest request(name, words);
  Answer answer = request.TakeStatus();
  if (!answer.good) return Show(request.TakeText(std::move(answer)));
  // From here on the pieces come when they come.
  char bytes[1 << 14];
  pollfd polled = {request.Socket().Get(), POLLIN, 0};
  while (true) {
    poll(&polled, 1, -1);
    const ssize_t size = read(request.Socket().Get(), bytes, sizeof bytes);
    if (size < 0 && (errno == EAGAIN || errno == EINTR)) continue;
    if (size <= 0) return 0;
    posix::PrintText({bytes, static_cast<size_t>(size)});
    posix::FinishOutput();
    if (posix::IsOutputLost()) return posix::OUTPUT_LOST_STATUS;
  }
}

std::optional<int> TryCommand(const std::string& name, std::vector<std::string> words,
                              const posix::Deadline& deadline) {
  std::vector<std::string> question = words;
  question.insert(question.begin(), "file-word");
  const Answer known = Ask(name, question, deadline);
  if (!known.good) return std::nullopt;
  const auto file = FileNamedIn(known.text);
  std::string path;
  if (file) {
    std::string& word = words.at(file->place);
    path = word = std::filesystem::absolute(word).string();
    if (file->is_callers) words.erase(words.begin() + static_cast<ptrdiff_t>(file->place));
  }
  const Answer answer = Ask(name, words, deadline);
  if (!answer.good || !file || !file->is_callers) return Show(answer);
  const std::string lost = posix::WriteWholeFile(path, answer.text);
  if (lost.empty()) return 0;
  posix::TellLostOutput(lost);
  return posix::OUTPUT_LOST_STATUS;
}

int CommandPhone(const std::string& name, const std::vector<std::string>& words,
                 const posix::Deadline& deadline) {
  return Show(Ask(name, words, deadline));
}

}  // namespace simulator
