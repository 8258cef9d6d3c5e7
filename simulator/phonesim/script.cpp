// Commands from a file, so that many of them cost one program.
#include <fmt/format.h>

#include <charconv>
#include <chrono>
#include <cstdio>
#include <fstream>
#include <iomanip>
#include <iostream>
#include <sstream>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "posix/whole_output.h"
#include "simulator/control/control_socket.h"
#include "simulator/phonesim/client.h"

namespace simulator {
namespace {

// A word with spaces stands in double quotes.
std::vector<std::string> LineWords(const std::string& line) {
  std::istringstream text(line);
  std::vector<std::string> words;
  for (std::string word; text >> std::ws && text.peek() != '#' && text >> std::quoted(word);) {
    words.push_back(word);
  }
  return words;
}

std::chrono::duration<double> Seconds(const std::string& word) {
  constexpr double LONGEST = 3600;
  double seconds = -1;
  const auto [end, error] = std::from_chars(word.data(), word.data() + word.size(), seconds);
  if (error != std::errc() || end != word.data() + word.size() || !(seconds >= 0 && seconds <= LONGEST)) {
    throw std::invalid_argument(fmt::format("wait takes 0 to {} seconds", LONGEST));
  }
  return std::chrono::duration<double>(seconds);
}

int RunWords(const std::string& name, const std::vector<std::string>& words) {
  if (words[0] == "wait") {
    if (words.size() != 2) throw std::invalid_argument("wait takes a number of seconds");
    std::this_thread::sleep_for(Seconds(words[1]));
    return 0;
  }
  const posix::Deadline deadline(CONTROL_TIME_OUT);
  const auto status = TryCommand(name, words, deadline);
  return status ? *status : CommandPhone(name, words, deadline);
}

}  // namespace

int RunScript(const std::string& name, const std::string& file) {
  std::ifstream opened;
  if (file != "-") opened.open(file);
  if (!opened) throw std::runtime_error(fmt::format("{}: cannot be read", file));
  std::istream& lines = file == "-" ? std::cin : opened;
  const std::string name_of_file = file == "-" ? "standard input" : file;
  int number = 0;
  for (std::string line; std::getline(lines, line);) {
    ++number;
    const std::vector<std::string> words = LineWords(line);
    if (words.empty()) continue;
    try {
      if (const int status = RunWords(name, words); status != 0) {
        fmt::print(stderr, "phonesim: {} line {} failed\n", name_of_file, number);
        return status;
      }
    } catch (const std::invalid_argument& wrong) {
      throw std::runtime_error(fmt::format("{} line {}: {}", name_of_file, number, wrong.what()));
    }
    posix::FinishOutput();  // a program that reads it follows the script
  }
  return 0;
}

}  // namespace simulator
