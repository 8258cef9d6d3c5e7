#include "simulator/models/modem_driver.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <fmt/ranges.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <stdexcept>

#include "simulator/models/driver_records.h"
#include "simulator/phone/device_model.h"
#include "simulator/phone/root_directory.h"

namespace simulator {

namespace {

constexpr uint32_t VALUES_REPLY = 0x1005;
constexpr uint32_t LINE_STATUS_REPLY = 0x1043;

}  // namespace

std::vector<std::string> ModemControlPort::Paths() const {
  return {"/dev/csmi_tty/1"};
}

OpenAnswer ModemControlPort::Open(const OpenCall& call) {
  return OpenAnswer::Descriptor(memory_.Open(call));
}

RequestAnswer ModemControlPort::Request(DriverRequest& request) {
  if (request.number != CONTROL && request.number != READ_VALUES && request.number != READ_LINE_STATUS) {
    return RequestAnswer::Refusal(ENOTTY);
  }
  std::optional<ControlRecord> record = request.ReadRecord<ControlRecord>();
  if (!record) return RequestAnswer::Refusal(EFAULT);
  // Nothing but the control value is passed in.
  const auto passed = std::begin(record->data) + (request.number == CONTROL ? 1 : 0);
  const bool clean = std::all_of(passed, std::end(record->data), [](uint8_t byte) { return byte == 0; });
  if (record->code != request.number || !clean) return RequestAnswer::Refusal(EINVAL);

  if (request.number == CONTROL) {
    if (record->data[0] > 1) return RequestAnswer::Refusal(EINVAL);
    state.control = record->data[0];
  } else if (request.number == READ_VALUES) {
    static_assert(sizeof state.values == sizeof record->data);
    record->code = VALUES_REPLY;
    memcpy(record->data, state.values.data(), sizeof record->data);
  } else {
    record->code = LINE_STATUS_REPLY;
    record->data[0] = state.line_status;
  }
  if (const auto code = state.reply_codes.find(request.number); code != state.reply_codes.end()) {
    record->code = code->second;
  }
  if (!request.WriteRecord(*record)) return RequestAnswer::Refusal(EFAULT);
  const auto result = state.results.find(request.number);
  return RequestAnswer::Success(result == state.results.end() ? 0 : result->second);
}

std::vector<ModelCommand> ModemControlPort::Commands() {
  return {{"modem-driver",
           "[values N N N N N N | line-status N | reply-code REQUEST CODE | result REQUEST N]",
           "shows what the modem's driver reports, or sets it",
           [this](const std::vector<std::string>& words) { return words.empty() ? Show() : Set(words); },
           {},
           {{"line-status", "0"}, {"values", "0", "0", "0", "0", "0", "0"}}}};
}

std::string ModemControlPort::Show() const {
  std::string text = fmt::format("control {}\nvalues {}\nline-status {}\n", state.control,
                                 fmt::join(state.values, " "), state.line_status);
  for (const auto& [request, code] : state.reply_codes) {
    text += fmt::format("reply-code {} 0x{:X}\n", request, code);
  }
  for (const auto& [request, result] : state.results) text += fmt::format("result {} {}\n", request, result);
  return text;
}

std::string ModemControlPort::Set(const std::vector<std::string>& words) {
  std::vector<int64_t> numbers;
  for (size_t index = 1; index < words.size(); ++index) numbers.push_back(NumberWord(words[index]));
  if (words[0] == "values" && numbers.size() == state.values.size()) {
    std::ranges::transform(numbers, state.values.begin(), [](int64_t n) { return static_cast<uint16_t>(n); });
  } else if (words[0] == "line-status" && numbers.size() == 1) {
    state.line_status = static_cast<uint8_t>(numbers[0]);
  } else if (words[0] == "reply-code" && numbers.size() == 2) {
    state.reply_codes[static_cast<uint32_t>(numbers[0])] = static_cast<uint32_t>(numbers[1]);
  } else if (words[0] == "result" && numbers.size() == 2) {
    state.results[static_cast<uint32_t>(numbers[0])] = static_cast<int>(numbers[1]);
  } else {
    throw std::invalid_argument("The modem's driver has no such value to set.");
  }
  return Show();
}

namespace {

constexpr uint64_t MEMORY_END = 0x14000000;  // 64 MiB from 0x10000000
constexpr uint32_t PIECE_SIZE = 1024;

}  // namespace

std::string ModemImage() {
  std::string image;
  uint32_t noise = 1;
  for (uint32_t piece = 0; piece < MODEM_IMAGE_SIZE / PIECE_SIZE; ++piece) {
    image += fmt::format("MODEM FFS {:02}", piece);
    while (image.size() % PIECE_SIZE != 0) {
      noise = noise * 1664525 + 1013904223;  // a linear congruential generator, its low bits left out
      image += static_cast<char>(noise >> 24);
    }
  }
  return image;
}

void ModemMemory::Furnish(RootDirectory& root) {
  root.PutSparseFileIfAbsent("/dev/mem", MEMORY_END);
  const std::string image = ModemImage();
  const posix::FileDescriptor memory = root.Open("/dev/mem", O_WRONLY);
  if (pwrite(memory.Get(), image.data(), image.size(), MODEM_IMAGE_ADDRESS) != MODEM_IMAGE_SIZE) {
    throw std::runtime_error("the modem's image cannot be written to /dev/mem");
  }
}

}  // namespace simulator
