// Emulates the modem's AT port /dev/csmi_tty/6: a command interpreter after ITU-T V.250 that knows at,
// at+cmee, at+cpin?, at+cgsn and at+csq, with echo off and verbose results.
#pragma once

#include <chrono>
#include <deque>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "simulator/phone/device_descriptors.h"
#include "simulator/phone/device_model.h"

namespace simulator {

class ModemAtPort : public DeviceModel {
 public:
  struct Piece {
    std::chrono::milliseconds pause;  // before it
    std::string bytes;
  };
  struct Line {
    bool from_phone;
    std::string text;
  };
  static constexpr size_t MOST_LINES = 40;
  struct State {
    bool sim_inserted = true;
    unsigned signal = 20;  // +CSQ's strength, 0 to 31, or 99 for unknown
    bool silent = false;
    std::string before_answer;           // sent in front of every answer, such as garbage
    size_t surplus = 0;                  // an information line of so many characters in every answer
    size_t piece_size = 0;               // answers come in pieces of so many bytes; 0 in one
    std::chrono::milliseconds pause{0};  // before each piece
    bool hangs_up = false;               // instead of answering
    bool fails_reads = false;            // every read of a port opened from now on fails
    bool fails_writes = false;           // and every write
    std::deque<Line> lines;              // the newest that passed, up to MOST_LINES
    std::map<std::string, std::vector<Piece>> scripts;  // instead of the interpreter's answer to a command
  };

  explicit ModemAtPort(PhoneServices& phone);
  std::vector<std::string> Paths() const override;
  OpenAnswer Open(const OpenCall& call) override;
  std::vector<ModelCommand> Commands() override;

  SerialLine& PhoneSide() {
    return line_;
  }

  State state;

 private:
  struct Result {
    std::string information;  // a line of text, or none
    std::string final_result = "OK";
  };

  void Take(std::string_view bytes);
  void Send(const std::string& bytes);
  void NoteLine(bool from_phone, std::string text);
  void Answer(const std::string& command);
  Result Execute(const std::string& command);
  Result Failure(unsigned number, const char* text) const;
  std::vector<Piece> InPieces(const std::string& answer) const;
  void Send(const std::vector<Piece>& pieces);
  std::string Show() const;
  std::string Set(const std::vector<std::string>& words);

  SerialLine line_;
  std::string command_;        // received so far
  unsigned error_report_ = 0;  // as +CMEE sets it: 0 plain, 1 by number, 2 in words
};

}  // namespace simulator
